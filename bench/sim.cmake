xpacl_bench(sim_bench sim)
