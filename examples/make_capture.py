#!/usr/bin/env python3
"""Writes examples/campus.pcap: what wing A of the campus example sends into GigabitEthernet1/0/1.

Only frames that enter the switch are in it, as a mirror of the port's receive side would show them;
of a TCP connection that is the client's half. The file is the same, octet by octet, on every run.

    python3 examples/make_capture.py [FILE]
"""

import ipaddress
import pathlib
import struct
import sys

STAFF, GUESTS, VOICE = 10, 20, 30
GATEWAY_MAC = "02:00:5e:00:00:01"
BROADCAST = "ff:ff:ff:ff:ff:ff"
RESOLVER, RESOLVER2, DHCP, NTP = "10.20.40.2", "10.20.40.3", "10.20.40.5", "10.20.40.7"
WEB, INTRANET, APPS, MAIL, EXCHANGE = "10.20.40.17", "10.20.40.80", "10.20.40.40", "10.20.40.25", "10.20.40.60"
PRINTER = "10.20.50.9"
OUTSIDE = "203.0.113.10"
PREFIX6 = "2001:db8:20:"
RESOLVER6, WEB6 = PREFIX6 + "40::2", PREFIX6 + "40::11"
FIN, SYN, RST, PSH, ACK = 1, 2, 4, 8, 16


def mac(text):
    return bytes(int(part, 16) for part in text.split(":"))


def host_mac(vlan, host):
    return "02:00:5e:00:%02x:%02x" % (vlan, host)


def checksum(data):
    """The Internet checksum (RFC 1071)."""
    if len(data) % 2:
        data += b"\0"
    total = sum(struct.unpack("!%dH" % (len(data) // 2), data))
    while total >> 16:
        total = (total & 0xFFFF) + (total >> 16)
    return ~total & 0xFFFF


def ethernet(source, payload, ethertype, tags=(), destination=GATEWAY_MAC):
    """A frame, its tags outermost first, padded to the 60 octets that the wire demands."""
    header = mac(destination) + mac(source)
    for position, tag in enumerate(tags):
        outer_of_two = len(tags) == 2 and position == 0
        header += struct.pack("!HH", 0x88A8 if outer_of_two else 0x8100, tag)
    return (header + struct.pack("!H", ethertype) + payload).ljust(60, b"\0")


def ipv4(source, destination, protocol, payload, ttl=64, ident=1, offset=0, more=False):
    """An IPv4 packet (RFC 791); `offset` counts octets."""
    flags = (0x2000 if more else 0) | offset // 8
    src, dst = ipaddress.IPv4Address(source).packed, ipaddress.IPv4Address(destination).packed
    header = struct.pack("!BBHHHBBH4s4s", 0x45, 0, 20 + len(payload), ident, flags, ttl, protocol, 0, src, dst)
    return header[:10] + struct.pack("!H", checksum(header)) + header[12:] + payload


def ipv6(source, destination, next_header, payload, hops=64):
    """An IPv6 packet (RFC 8200)."""
    src, dst = ipaddress.IPv6Address(source).packed, ipaddress.IPv6Address(destination).packed
    return struct.pack("!IHBB16s16s", 0x60000000, len(payload), next_header, hops, src, dst) + payload


def pseudo_header(source, destination, protocol, length):
    src, dst = ipaddress.ip_address(source), ipaddress.ip_address(destination)
    if src.version == 4:
        return src.packed + dst.packed + struct.pack("!BBH", 0, protocol, length)
    return src.packed + dst.packed + struct.pack("!IHBB", length, 0, 0, protocol)


def udp(source, destination, source_port, destination_port, data):
    length = 8 + len(data)
    segment = struct.pack("!HHHH", source_port, destination_port, length, 0) + data
    # A checksum of zero means none, so zero is sent as all ones (RFC 768).
    total = checksum(pseudo_header(source, destination, 17, length) + segment) or 0xFFFF
    return segment[:6] + struct.pack("!H", total) + data


def tcp(source, destination, source_port, destination_port, flags, sequence=1000, data=b""):
    acknowledged = 5000 if flags & ACK else 0
    segment = struct.pack("!HHIIBBHHH", source_port, destination_port, sequence, acknowledged, 0x50, flags, 64240, 0, 0)
    segment += data
    total = checksum(pseudo_header(source, destination, 6, len(segment)) + segment)
    return segment[:16] + struct.pack("!H", total) + segment[18:]


def icmp(kind, code=0, rest=b"\0\x01\0\x01", data=b"abcdefgh"):
    message = struct.pack("!BBH", kind, code, 0) + rest + data
    return message[:2] + struct.pack("!H", checksum(message)) + message[4:]


def icmp6(source, destination, kind, body):
    message = struct.pack("!BBH", kind, 0, 0) + body
    total = checksum(pseudo_header(source, destination, 58, len(message)) + message)
    return message[:2] + struct.pack("!H", total) + message[4:]


def dns_query(name, kind=1, ident=0x2000):
    labels = b"".join(bytes([len(part)]) + part.encode() for part in name.split(".")) + b"\0"
    return struct.pack("!HHHHHH", ident, 0x0100, 1, 0, 0, 0) + labels + struct.pack("!HH", kind, 1)


def dhcp(kind, client, host):
    """A DHCP message (RFC 2131) from `host`, or from nobody yet when the last octet is 0."""
    ciaddr = ipaddress.IPv4Address(client if host else 0).packed
    fixed = struct.pack("!BBBBIHH4s4s4s4s16s", 1, 1, 6, 0, 0x1234, 0, 0, ciaddr, b"", b"", b"", mac(host_mac(STAFF, 99)))
    return fixed + bytes(192) + b"\x63\x82\x53\x63" + bytes([53, 1, kind, 255])


class Capture:
    """Frames in the order in which they enter the port, four milliseconds apart."""

    def __init__(self):
        self.frames = []

    def add(self, frame):
        self.frames.append(frame)

    def add_v4(self, vlan, host, destination, protocol, payload, source=None, **fields):
        source = source or "10.20.%d.%d" % (vlan, host)
        packet = ipv4(source, destination, protocol, payload, **fields)
        self.add(ethernet(host_mac(vlan, host), packet, 0x0800, (vlan,)))

    def add_udp(self, vlan, host, destination, source_port, destination_port, data=b"\0" * 16, source=None):
        sender = source or "10.20.%d.%d" % (vlan, host)
        self.add_v4(vlan, host, destination, 17, udp(sender, destination, source_port, destination_port, data), source)

    def add_tcp(self, vlan, host, destination, source_port, destination_port, flags, data=b"", source=None, **fields):
        sender = source or "10.20.%d.%d" % (vlan, host)
        segment = tcp(sender, destination, source_port, destination_port, flags, 1000, data)
        self.add_v4(vlan, host, destination, 6, segment, source, **fields)

    def connection(self, vlan, host, destination, source_port, destination_port, data=b"GET / HTTP/1.1\r\n\r\n"):
        """The client's half of one short connection: SYN, ACK, data, ACK, FIN."""
        self.add_tcp(vlan, host, destination, source_port, destination_port, SYN)
        self.add_tcp(vlan, host, destination, source_port, destination_port, ACK)
        self.add_tcp(vlan, host, destination, source_port, destination_port, PSH | ACK, data)
        self.add_tcp(vlan, host, destination, source_port, destination_port, ACK)
        self.add_tcp(vlan, host, destination, source_port, destination_port, FIN | ACK)

    def add_v6(self, vlan, host, packet, destination_mac=GATEWAY_MAC):
        self.add(ethernet(host_mac(vlan, host), packet, 0x86DD, (vlan,), destination_mac))

    def add_icmp6(self, vlan, host, source, destination, kind, body, hops=255):
        packet = ipv6(source, destination, 58, icmp6(source, destination, kind, body), hops)
        multicast = ipaddress.IPv6Address(destination).packed
        group = "33:33:" + ":".join("%02x" % octet for octet in multicast[12:])
        self.add_v6(vlan, host, packet, group if multicast[0] == 0xFF else GATEWAY_MAC)

    def write(self, path):
        # Classic pcap, microseconds, Ethernet; the first frame on 3 June 2024, 08:00 UTC.
        blob = struct.pack("<IHHiIII", 0xA1B2C3D4, 2, 4, 0, 0, 65535, 1)
        for number, frame in enumerate(self.frames):
            microseconds = number * 4000
            seconds = 1717401600 + microseconds // 1000000
            blob += struct.pack("<IIII", seconds, microseconds % 1000000, len(frame), len(frame)) + frame
        pathlib.Path(path).write_bytes(blob)


def arp(vlan, host, target):
    """Who has `target`? (RFC 826)"""
    source = ipaddress.IPv4Address("10.20.%d.%d" % (vlan, host)).packed
    body = struct.pack("!HHBBH6s4s6s4s", 1, 0x0800, 6, 4, 1, mac(host_mac(vlan, host)), source, bytes(6),
                       ipaddress.IPv4Address(target).packed)
    return ethernet(host_mac(vlan, host), body, 0x0806, (vlan,), BROADCAST)


def morning(capture):
    """Machines wake up: link negotiation, addresses, neighbours, names, time."""
    eapol = ethernet(host_mac(STAFF, 11), b"\x01\x01\x00\x00", 0x888E, (), "01:80:c2:00:00:03")
    capture.add(eapol)
    for host in (99, 98):
        message = dhcp(1, "0.0.0.0", 0)
        capture.add_udp(STAFF, host, "255.255.255.255", 68, 67, message, source="0.0.0.0")
    capture.add_udp(STAFF, 99, DHCP, 68, 67, dhcp(3, "10.20.10.99", 99))
    for vlan, host in ((STAFF, 11), (GUESTS, 21), (VOICE, 31)):
        capture.add(arp(vlan, host, "10.20.%d.1" % vlan))
        capture.add_udp(vlan, host, NTP, 123, 123, b"\x23" + bytes(47))
    for index, host in enumerate((11, 12, 13, 40)):
        capture.add_udp(STAFF, host, (RESOLVER, RESOLVER2)[index % 2], 40000 + host, 53, dns_query("intranet.example.org"))
    capture.add_udp(GUESTS, 21, RESOLVER, 41021, 53, dns_query("www.example.com", 28))
    capture.connection(STAFF, 12, RESOLVER, 42012, 53, b"\0\x22" + dns_query("big.example.org", 255))
    # A switch of somebody's own under the desk: a spanning tree frame, and two tags on one packet.
    capture.add(ethernet(host_mac(STAFF, 77), b"\x42\x42\x03" + bytes(35), 38, (), "01:80:c2:00:00:00"))
    query = ipv4("10.20.10.13", RESOLVER, 17, udp("10.20.10.13", RESOLVER, 40113, 53, dns_query("mail.example.org")))
    capture.add(ethernet(host_mac(STAFF, 13), query, 0x0800, (STAFF, 7)))


def staff_work(capture):
    for index, host in enumerate((11, 12, 13, 40)):
        capture.connection(STAFF, host, (WEB, INTRANET)[index % 2], 50000 + index, (80, 443, 8443, 443)[index])
    for index, port in enumerate((25, 587, 993)):
        capture.connection(STAFF, 12, MAIL, 50100 + index, port, b"EHLO wing-a\r\n")
    for port in (4999, 5000, 5042, 5099, 5100):
        capture.add_tcp(STAFF, 13, APPS, 50200 + port % 100, port, SYN)
    for port in (515, 631, 9100, 9101):
        capture.add_tcp(STAFF, 13, PRINTER, 50300 + port % 100, port, SYN)
    # The help desk (the first sixteen addresses) may log in to servers; a colleague next door may not.
    capture.connection(STAFF, 14, WEB, 50400, 22, b"SSH-2.0-x\r\n")
    capture.connection(STAFF, 15, MAIL, 50401, 22, b"SSH-2.0-x\r\n")
    capture.add_tcp(STAFF, 16, MAIL, 50402, 22, SYN)
    for index, port in enumerate((21, 22, 80, 443, 1024, 6000)):
        capture.connection(STAFF, 40, OUTSIDE, 51000 + index, port)
    capture.add_udp(STAFF, 40, OUTSIDE, 52000, 1023)
    capture.add_udp(STAFF, 40, OUTSIDE, 52001, 1024)
    capture.add_udp(STAFF, 40, OUTSIDE, 52002, 33434)
    # A machine with a mail worm and one that looks for shared folders.
    for index in range(4):
        capture.add_tcp(STAFF, 66, "198.51.100.%d" % (index + 1), 53000 + index, 25, SYN)
    for index, port in enumerate((134, 135, 137, 139, 140, 445)):
        capture.add_tcp(STAFF, 66, "10.20.50.%d" % (index + 1), 53100 + index, port, SYN)


def telephones(capture):
    capture.add_udp(VOICE, 31, EXCHANGE, 5060, 5060, b"INVITE sip:32 SIP/2.0\r\n")
    capture.add_udp(VOICE, 32, EXCHANGE, 5060, 5060, b"REGISTER sip:pbx SIP/2.0\r\n")
    for index, port in enumerate((16382, 16384, 20000, 32766, 32768)):
        capture.add_udp(VOICE, 31, "10.20.30.32", 20000 + index, port, b"\x80\0" + bytes(30))
    capture.add_tcp(VOICE, 33, OUTSIDE, 54000, 443, SYN)


def pings_and_pieces(capture):
    for vlan, host in ((STAFF, 11), (GUESTS, 21), (VOICE, 31)):
        capture.add_v4(vlan, host, WEB, 1, icmp(8))
    capture.add_v4(STAFF, 11, DHCP, 1, icmp(0))
    capture.add_v4(STAFF, 11, OUTSIDE, 1, icmp(3, 4, b"\0\0\x05\x78", bytes(28)))
    capture.add_v4(STAFF, 11, OUTSIDE, 1, icmp(5, 1, bytes([10, 20, 10, 1]), bytes(28)))
    capture.add_v4(STAFF, 11, OUTSIDE, 1, icmp(13, 0, b"\0\x01\0\x01", bytes(12)))
    # One long query to the resolver in three pieces, and pieces for somebody who should get none.
    whole = udp("10.20.10.12", RESOLVER, 43012, 53, dns_query("long.example.org") + bytes(158))
    for offset in (0, 80, 160):
        last = offset == 160
        piece = whole[offset:] if last else whole[offset:offset + 80]
        capture.add_v4(STAFF, 12, RESOLVER, 17, piece, ident=77, offset=offset, more=not last)
    for offset in (8, 1480):
        capture.add_v4(STAFF, 66, APPS, 17, bytes(24), ident=78, offset=offset, more=offset == 8)
    # Cut short: a fragment that ends inside its TCP header.
    capture.add_v4(STAFF, 66, WEB, 6, tcp("10.20.10.66", WEB, 55000, 80, SYN)[:8], ident=79, more=True)


def strangers(capture):
    """Senders that cannot be ours, routing protocols, the stolen card, scans."""
    capture.add_udp(STAFF, 66, RESOLVER, 44000, 53, dns_query("x.example.org"), source="127.0.0.1")
    capture.add_udp(STAFF, 67, "169.254.255.255", 138, 138, source="169.254.9.9")
    capture.add_udp(STAFF, 66, RESOLVER, 44001, 53, dns_query("x.example.org"), source="224.0.0.9")
    capture.add_udp(STAFF, 66, RESOLVER, 44002, 53, dns_query("x.example.org"), source="192.0.2.66")
    capture.add_tcp(STAFF, 66, "10.20.10.1", 179, 179, SYN, ttl=1)
    capture.add_tcp(STAFF, 66, "10.20.10.1", 50179, 179, SYN, ttl=2)
    capture.add_v4(STAFF, 66, "224.0.0.5", 89, bytes(44), ttl=1)
    for flags, port in ((SYN, 23), (0, 23), (FIN, 23), (RST, 23), (SYN, 3389), (SYN | FIN, 111)):
        capture.add_tcp(STAFF, 66, WEB, 56000 + flags, port, flags)
    stolen = ipv4("10.20.10.5", WEB, 6, tcp("10.20.10.5", WEB, 57000, 443, SYN))
    for _ in range(3):
        capture.add(ethernet("02:00:5e:00:0b:ad", stolen, 0x0800, (STAFF,)))
    capture.add(ethernet(host_mac(STAFF, 66), bytes(46), 0x88CC, (), "01:80:c2:00:00:0e"))
    broken = ipv4("10.20.10.66", WEB, 6, b"")
    capture.add(ethernet(host_mac(STAFF, 66), b"\x43" + broken[1:], 0x0800, (STAFF,)))


def guests(capture):
    for index, port in enumerate((80, 443)):
        capture.connection(GUESTS, 21, "198.51.100.80", 58000 + index, port)
    for index in range(4):
        capture.add_udp(GUESTS, 22, "198.51.100.81", 58100 + index, 443, b"\xc3" + bytes(40))
    for index in range(8):
        capture.add_tcp(GUESTS, 23, "10.20.40.%d" % (16 + index), 58200, 443, SYN)
    capture.add_tcp(GUESTS, 22, "198.51.100.82", 58300, 8080, SYN)
    capture.add_udp(GUESTS, 22, "198.51.100.82", 58301, 51820)


def version6(capture):
    staff, guest = PREFIX6 + "10::11", PREFIX6 + "20::21"
    link_local = "fe80::5eff:fe00:a0b"
    source_option = b"\x01\x01" + mac(host_mac(STAFF, 11))
    capture.add_icmp6(STAFF, 11, link_local, "ff02::2", 133, bytes(4) + source_option)
    target = ipaddress.IPv6Address(PREFIX6 + "10::1").packed
    capture.add_icmp6(STAFF, 11, staff, "ff02::1:ff00:1", 135, bytes(4) + target + source_option)
    capture.add_icmp6(STAFF, 11, staff, PREFIX6 + "10::1", 136, b"\x60\0\0\0" + ipaddress.IPv6Address(staff).packed)
    # Somebody plays router.
    capture.add_icmp6(STAFF, 66, "fe80::66", "ff02::1", 134, b"\x40\0\x07\x08" + bytes(8))
    capture.add_icmp6(STAFF, 11, staff, WEB6, 128, b"\0\x01\0\x01abcdefgh", 64)
    capture.add_icmp6(STAFF, 11, staff, WEB6, 129, b"\0\x01\0\x01abcdefgh", 64)
    capture.add_icmp6(STAFF, 11, staff, "2001:db8:99::1", 2, struct.pack("!I", 1280) + bytes(40), 64)
    capture.add_icmp6(STAFF, 11, link_local, "ff02::16", 143, bytes(4), 1)
    query = dns_query("www.example.com", 28)
    capture.add_v6(STAFF, 11, ipv6(staff, RESOLVER6, 17, udp(staff, RESOLVER6, 45000, 53, query)))
    for source, vlan, host in ((staff, STAFF, 11), (guest, GUESTS, 21)):
        for destination, port in ((WEB6, 443), (WEB6, 22), ("2001:db8:99::80", 443), ("2001:db8:99::80", 23)):
            for flags in (SYN, ACK):
                segment = tcp(source, destination, 46000 + port, port, flags)
                capture.add_v6(vlan, host, ipv6(source, destination, 6, segment))
        datagram = udp(source, "2001:db8:99::80", 47000, 443, b"\xc3" + bytes(40))
        capture.add_v6(vlan, host, ipv6(source, "2001:db8:99::80", 17, datagram))
    # Options in front of the segment, and the second piece of a datagram (RFC 8200).
    segment = tcp(staff, WEB6, 48000, 443, SYN)
    capture.add_v6(STAFF, 11, ipv6(staff, WEB6, 60, b"\x06\0\x01\x04\0\0\0\0" + segment))
    capture.add_v6(STAFF, 11, ipv6(staff, RESOLVER6, 44, struct.pack("!BBHI", 17, 0, 1232, 99) + bytes(40)))


def main():
    capture = Capture()
    for scene in (morning, staff_work, telephones, pings_and_pieces, strangers, guests, version6):
        scene(capture)
    capture.write(sys.argv[1] if len(sys.argv) > 1 else pathlib.Path(__file__).with_name("campus.pcap"))


if __name__ == "__main__":
    main()
