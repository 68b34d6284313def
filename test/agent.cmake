xpacl_test_support(randomLists FILES RandomLists ROOMS agentConfig packet)
xpacl_test_support(chipPicture FILES ChipPicture ROOMS sim)
xpacl_tests(agent_tests
            FILES agent_aggregate agent_rows agent_counters differential evaluator
            ROOMS randomLists configSummary agent sim verify)
# Long lives, and what exhausts tables and memory: programs of their own, as ./dev prove runs them for hours.
xpacl_test(agent_scenario_test randomLists chipPicture agent sim verify)
xpacl_test(exhaustion_test randomLists agent sim)
