xpacl_test_support(valueLaws FILES ValueLaws ROOMS platform)
xpacl_tests(vane_tests
            FILES vane_value vane_collections vane_notification vane_entity vane_reactor vane_trace
            ROOMS valueLaws platform)
