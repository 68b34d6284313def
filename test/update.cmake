# Changes proven write by write.
xpacl_tests(update_tests FILES update_check update_proof ROOMS randomLists toolCommands)
