xpacl_tests(packet_tests FILES packet_dissect packet_capture packet_text ROOMS packet)
