xpacl_bench(agent_bench agent sim)
