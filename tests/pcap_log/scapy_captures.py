# Captures as scapy writes them, pcap and pcapng: VLAN tags (one, and two
# stacked), a jumbo frame, frames shorter than the 60 bytes of the Ethernet
# minimum. Every address is given, so that scapy looks up nothing on this
# machine; nothing is sent. Prints a line per frame: "<microseconds> <hex>".
import sys

from scapy.all import ARP, Dot1Q, Ether, IP, Raw, UDP, wrpcap
from scapy.utils import PcapNgWriter

DST, SRC = "01:00:5e:00:00:01", "02:00:00:00:00:01"
frames = [
    Ether(dst=DST, src=SRC) / Dot1Q(vlan=10, prio=5) / IP(src="10.0.0.1", dst="239.0.0.1")
    / UDP(sport=30490, dport=30490) / Raw(b"x" * 20),
    Ether(dst=DST, src=SRC) / Dot1Q(vlan=100) / Dot1Q(vlan=200) / IP(src="10.0.0.1", dst="10.0.0.2") / UDP() / Raw(b"q"),
    Ether(dst=DST, src=SRC) / IP(src="10.0.0.1", dst="10.0.0.2") / UDP() / Raw(bytes(range(256)) * 35),
    Ether(dst="ff:ff:ff:ff:ff:ff", src=SRC) / ARP(hwsrc=SRC, psrc="10.0.0.1", pdst="10.0.0.2"),
    Ether(dst=DST, src=SRC, type=0x88B5),
]
for i, frame in enumerate(frames):
    frame.time = 1700000000 + i + 0.123456
wrpcap(sys.argv[1], frames)
writer = PcapNgWriter(sys.argv[2])
for frame in frames:
    writer.write(frame)
writer.close()
for frame in frames:
    print(int(round(frame.time * 1000000)), bytes(frame).hex())
