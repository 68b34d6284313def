# Changes proven write by write, and the certificates of such proofs.
xpacl_test(update_proof_test randomLists toolCommands)
if(TARGET xpacl)
  xpacl_test(certificate_test toolCommands)
  target_compile_definitions(certificate_test PRIVATE XPACL_TOOL="$<TARGET_FILE:xpacl>")
  add_dependencies(certificate_test xpacl)
endif()
