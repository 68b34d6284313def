xpacl_test(packet_dissect_test packet)
xpacl_test(packet_capture_test packet)
xpacl_test(packet_text_test packet)
