xpacl_test(agent_aggregate_test agent sim)
xpacl_test(agent_apply_test agent sim)
