#!/bin/bash
# forge.sh NAME HOST: gives the server NAME of servers.sh a certificate for a host that an authority has signed whom nobody
# here trusts.
set -euo pipefail
work=$ZEL_LAB/nats
. "$(dirname "$0")/certificates.sh"
make_certificate stranger "$1" "$2"
