# What the system survives, for how long, and on how little memory.
xpacl_test_support(faultTrials FILES FaultTrials ROOMS chipPicture randomLists agent sim verify)
xpacl_test(faults_test faultTrials agent sim)
xpacl_test(faults_kill_test faultTrials agent sim)
xpacl_test(soak_test randomLists chipPicture agent sim verify)
xpacl_test(allocation_test chipPicture agent sim)
xpacl_test(config_properties_test randomLists agent sim)
