# Exact sets of packets: the diagrams, and the lists' side.
xpacl_tests(sets_tests FILES sets_engine sets_lines sets_lint sets_diff ROOMS listsAndChips verify)
