xpacl_bench(agent_bench agent sim)
xpacl_bench(distribution_bench agent sim)
