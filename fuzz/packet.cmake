xpacl_fuzz(packet_fuzz packet)
xpacl_fuzz(packet_text_fuzz packet)
