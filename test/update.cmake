# Changes proven write by write.
xpacl_test(update_check_test randomLists toolCommands)
xpacl_test(update_proof_test randomLists toolCommands)
