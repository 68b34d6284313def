# What the system survives, for how long, and on how little memory.
xpacl_test(soak_test randomLists chipPicture agent sim verify)
xpacl_test(allocation_test chipPicture agent sim)
add_library(faultTrials STATIC FaultTrials.cpp)
target_link_libraries(faultTrials PUBLIC chipPicture randomLists agent sim verify GTest::gtest PRIVATE xpacl_flags)
xpacl_test(faults_kill_test faultTrials agent sim)
xpacl_test(config_properties_test randomLists agent sim)
