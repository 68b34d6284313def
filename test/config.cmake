# What is read: configurations, and documents of the OpenConfig models.
xpacl_tests(config_tests
            FILES config_words config_entry config_refuse config_list config_group config_interface config_text
                  config_file openconfig_read openconfig_document
            ROOMS listsAndChips)
