"""Lists the devices on the networks of this machine:  discover.py [SECONDS]"""

import sys

import zel

with zel.scan(timeout=float(sys.argv[1]) if len(sys.argv) > 1 else 5) as devices:
    for device in devices:
        print(device.id_text, device.address, device.host_name, device.protocol_version, file=sys.stderr)
