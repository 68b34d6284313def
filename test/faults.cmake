# What the system survives, and on how little memory: the latter has an operator new of its own.
xpacl_tests(faults_tests FILES faults faults_kill ROOMS chipPicture randomLists agent sim verify)
target_sources(faults_tests PRIVATE FaultTrials.cpp)
xpacl_test(allocation_test chipPicture agent sim)
