xpacl_test_support(randomLists FILES RandomLists ROOMS agentConfig packet)
xpacl_test_support(chipPicture FILES ChipPicture ROOMS sim)
xpacl_tests(agent_tests
            FILES agent_aggregate agent_rows agent_counters differential evaluator
            ROOMS randomLists configSummary agent sim verify)
# Long lives, what exhausts tables, and what does not matter to a configuration; ./dev prove runs them for hours.
xpacl_tests(life_tests
            FILES agent_scenario soak exhaustion config_properties
            ROOMS randomLists chipPicture agent sim verify)
