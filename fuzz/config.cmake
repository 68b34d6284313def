xpacl_fuzz(config_fuzz agentConfig)
xpacl_fuzz(classbench_fuzz agentConfig)
