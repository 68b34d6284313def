xpacl_test_support(listsAndChips FILES RandomLists ConfigSummary ChipPicture ROOMS agentConfig packet sim)
# The agent, and what it drives; long lives, what exhausts tables, what does not matter to a configuration, what the
# system survives, and changes proven write by write, all of which ./dev prove runs for hours.
xpacl_tests(agent_tests
            FILES agent_aggregate agent_rows agent_counters differential evaluator agent_scenario soak exhaustion
                  config_properties faults faults_kill update_check update_proof
            SUPPORT FaultTrials
            ROOMS listsAndChips toolCommands)
# On how little memory; it has an operator new of its own.
xpacl_test(allocation_test listsAndChips agent)
