xpacl_tests(sim_tests FILES sim_tcam sim_key sim_sdk sim_pipeline sim_faults ROOMS sim)
