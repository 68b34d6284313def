xpacl_test(evaluator_test verify packet configSummary)
