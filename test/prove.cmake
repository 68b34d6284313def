# Changes proven write by write, and the certificates of such proofs.
xpacl_test(update_proof_test randomLists toolCommands)
xpacl_tool_test(certificate_test patterns toolCommands)
