#!/bin/bash
# Runs a command on a host of its own, in a network that nobody else sees. Nothing in there reaches a network of the
# machine, and /opt/zel and /var/tmp/zel are empty directories of its own. Everything that loads the library runs here.
#
#   lab.sh [options] [--] COMMAND [ARGUMENT...]
#
#   --hosts N            N hosts on one network: the command's at 10.77.0.1, "device1" at 10.77.0.2 and so on. Default 1.
#                        With 0 the command's has its loopback alone.
#   --second-interface   a second interface for every host, on a second network: 10.77.1.1, 10.77.1.2 and so on.
#   --local "HOST PREFIX"  makes every address of a prefix, 10.78.0.0/16 say, one of a host's. Repeatable.
#   --no-default-route   no host has a way out of its networks, as in a plant.
#   --name-server        names are asked for at 127.0.0.1, where a test may answer.
#   --drop "HOST WHAT"   the firewall of a host drops what comes in and is so, in the words of nft: "1 udp dport 38898".
#                        Repeatable.
#   --link "[HOST ]RATE" the link of a host, 0 (the command's own) when none is named, carries no more than a rate as tc
#                        writes it (10mbit) in each direction, and every host sends segments of their real size.
#                        Repeatable.
#   --relay CONDUCT      puts a relay between the command and the servers that its tests play: host 1 answers in place
#                        of each server, and does to the streams what CONDUCT says as zelsim's --relay takes it
#                        (delay:5ms,cut:1; "" for nothing). The relay has a cable of its own to the servers, which no
#                        --link makes slow. $ZEL_RELAY is where it answers and where the servers are: the first two
#                        numbers of either's addresses.
#   --sim "HOST ARGS"    starts the simulator with these arguments (quoted as for a shell) on a host, 0 the command's
#                        own, before the command. Repeatable. The n-th one's trace is in the file $ZEL_TRACE_n.
#                        $ZELSIM names the simulator; default: the one of the linux-release build,
#                        or else the one that is installed.
#   --wine               the command is a Windows program. $ZEL_WINE_PREFIX is the prefix to start from, which stays as
#                        it is; default: the one that ./test.sh windows makes.
#
# The exit status is the command's; 97 when the lab itself cannot be set up. Whatever was started in the lab ends with
# it. $ZEL_LAB is the lab's scratch directory. Needs no privilege where the system allows user namespaces.
set -Eeuo pipefail

tree=$(cd "$(dirname "$0")/../.." && pwd)
built=$tree/build/linux-release/tools/zelsim/zelsim
export ZELSIM=${ZELSIM:-$([ -x "$built" ] && echo "$built" || command -v zelsim || echo "$built")}
export ZEL_WINE_PREFIX=${ZEL_WINE_PREFIX:-$tree/build/wineprefix}

fail() {
  echo "lab: $*" >&2
  exit 97
}

enter() {
  local user=()
  [ "$(id -u)" = 0 ] || user=(--user --map-root-user)
  exec unshare "${user[@]}" --net --mount --pid --fork --kill-child --mount-proc -- "$0" --inside "$@"
}

# The servers that the tests play are on the command's host, at addresses of their own.
add_relay() {
  relay=yes
  export ZEL_RELAY="10.78 10.79"
  ((hosts >= 2)) || hosts=2
  locals+=("1 10.78.0.0/16" "0 10.79.0.0/16")
  sims+=("1 --relay 10.78.0.0/16:9999=10.79.0.0/16:9999${1:+,$1}")
}

parse() {
  hosts=1 interfaces=1 wine=no sims=() locals=() links=() drops=() routed=yes relay=no nameServer=no
  while [ $# -gt 0 ]; do
    case $1 in
      --hosts) hosts=$2; shift 2 ;;
      --second-interface) interfaces=2; shift ;;
      --local) locals+=("$2"); shift 2 ;;
      --no-default-route) routed=no; shift ;;
      --name-server) nameServer=yes; shift ;;
      --drop) drops+=("$2"); shift 2 ;;
      --link) links+=("$2"); shift 2 ;;
      --relay) add_relay "$2"; shift 2 ;;
      --sim) sims+=("$2"); shift 2 ;;
      --wine) wine=yes; shift ;;
      --) shift; break ;;
      -*) fail "unknown option $1" ;;
      *) break ;;
    esac
  done
  [ $# -gt 0 ] || fail "no command"
  command=("$@")
}

. "$tree/tests/lab/cover.sh"

private_files() {
  cover /opt zel
  mkdir /opt/zel
  cover /var/tmp zel lab
  mkdir /var/tmp/zel /var/tmp/lab
  export ZEL_LAB=/var/tmp/lab
  cover /run netns
  mkdir -p /run/netns
}

# in_host N COMMAND...: runs a command on a host.
in_host() {
  local host=$1
  shift
  if [ "$host" = 0 ]; then "$@"; else nsenter --net="/run/netns/device$host" -- "$@"; fi
}

own_name_server() {
  printf 'nameserver 127.0.0.1\noptions attempts:1\n' >"$ZEL_LAB/resolv.conf"
  # Where there is no such file, 127.0.0.1 is asked anyway.
  [ ! -e /etc/resolv.conf ] || mount --bind "$ZEL_LAB/resolv.conf" /etc/resolv.conf
}

in_switch() { nsenter --net=/run/netns/switch -- "$@"; }

# add_interface HOST NETWORK: joins a host to a network by a cable from the switch.
add_interface() {
  local host=$1 network=$2 end="device$1" hardware
  [ "$host" != 0 ] || end=$$
  hardware=$(printf '02:77:00:00:%02x:%02x' "$network" "$((host + 1))")
  in_switch ip link add name "port$host.$network" type veth peer name "eth$network" address "$hardware" netns "$end"
  in_switch ip link set "port$host.$network" master "net$network" up
  in_host "$host" ip addr add "10.77.$network.$((host + 1))/24" brd + dev "eth$network"
  in_host "$host" ip link set "eth$network" up
  [ "$network" != 0 ] || [ "$routed" = no ] || in_host "$host" ip route add default dev eth0
}

# start_host HOST: its loopback. A socket that asks for any free port never gets one of the protocol's own, which a test
# would then miss.
start_host() {
  in_host "$1" ip link set lo up
  in_host "$1" sh -c 'echo 9999,38896-38898 >/proc/sys/net/ipv4/ip_local_reserved_ports'
}

build_network() {
  local host network
  start_host 0
  ip netns add switch
  for ((network = 0; network < interfaces; ++network)); do
    in_switch ip link add name "net$network" up type bridge mcast_snooping 0
  done
  for ((host = 0; host < hosts; ++host)); do
    [ "$host" = 0 ] || {
      ip netns add "device$host"
      start_host "$host"
    }
    for ((network = 0; network < interfaces; ++network)); do add_interface "$host" "$network"; done
  done
}

# What passes the relay goes to the servers by a cable that carries nothing else. Each side knows the other as one
# neighbour: all labs of a machine share a table of about a thousand of them, and connects fail when it is full.
connect_relay() {
  in_switch ip link add name "net$relayNetwork" up type bridge mcast_snooping 0
  add_interface 0 "$relayNetwork"
  add_interface 1 "$relayNetwork"
  in_host 0 ip route add 10.78.0.0/16 via 10.77.0.2
  in_host 1 ip route add 10.79.0.0/16 via "10.77.$relayNetwork.1"
}

# Without this a host hands over 64 KiB at once, which no cable carries.
send_real_segments() {
  local host network
  for ((host = 0; host < hosts; ++host)); do
    for ((network = 0; network < interfaces; ++network)); do
      in_host "$host" ip link set "eth$network" gso_max_segs 1
    done
  done
}

# shape_link "[HOST ]RATE": both ends of the host's cables. What comes too fast waits, and nothing is dropped.
shape_link() {
  local rate=${1##* } host=0 network
  [[ $1 != *" "* ]] || host=${1%% *}
  local rule=(root tbf rate "$rate" burst 3200 limit 64mb)
  for ((network = 0; network < interfaces; ++network)); do
    in_host "$host" tc qdisc add dev "eth$network" "${rule[@]}"
    in_switch tc qdisc add dev "port$host.$network" "${rule[@]}"
  done
}

# drop "HOST WHAT"
drop() {
  local host=${1%% *}
  in_host "$host" nft "add table inet lab; add chain inet lab in { type filter hook input priority 0; }; \
add rule inet lab in ${1#* } drop"
}

# What a Windows program calls a file.
shown_path() {
  if [ "$wine" = yes ]; then printf 'Z:%s' "${1//\//\\}"; else printf '%s' "$1"; fi
}

start_sim() {
  local number=$1 host=${2%% *} log="$ZEL_LAB/sim$1.log" trace="$ZEL_LAB/trace$1" arguments=() waited
  [ -x "$ZELSIM" ] || fail "no simulator at $ZELSIM"
  if [[ $2 == *" "* ]]; then eval "arguments=(${2#* })"; fi
  : >"$trace" >"$log"
  in_host "$host" "$ZELSIM" "${arguments[@]}" --trace "$trace" >"$log" 2>&1 </dev/null &
  simPids+=($!)
  for ((waited = 0; waited < 500; ++waited)); do
    if grep -qx ready "$log"; then break; fi
    kill -0 $! 2>/dev/null || fail "zelsim $2: $(cat "$log")"
    sleep 0.02
  done
  ((waited < 500)) || fail "zelsim $2 is not ready after 10 s: $(cat "$log")"
  export "ZEL_TRACE_$number=$(shown_path "$trace")"
}

stop_sims() {
  local pid
  for pid in "${simPids[@]}"; do kill "$pid" 2>/dev/null || true; done
}

prepare_wine() {
  [ -d "$ZEL_WINE_PREFIX/drive_c" ] || fail "no Wine prefix at $ZEL_WINE_PREFIX; ./test.sh windows makes one"
  export WINEPREFIX=$ZEL_LAB/wine WINEDEBUG=-all WINEDLLOVERRIDES="mscoree=d;mshtml=d"
  unset DISPLAY WAYLAND_DISPLAY
  # Texts are UTF-8, as for a Windows program whose manifest says so.
  export LC_ALL=C.UTF-8
  mkdir "$ZEL_LAB/wine.changes" "$ZEL_LAB/wine.work" "$WINEPREFIX"
  mount -t overlay -o "lowerdir=$ZEL_WINE_PREFIX,upperdir=$ZEL_LAB/wine.changes,workdir=$ZEL_LAB/wine.work" \
    lab "$WINEPREFIX" 2>/dev/null || cp -a --reflink=auto "$ZEL_WINE_PREFIX/." "$WINEPREFIX"
  # Where every Wine of a user keeps its sockets.
  mkdir -p "/tmp/.wine-$(id -u)"
  mount -t tmpfs -o mode=700 lab "/tmp/.wine-$(id -u)"
  ZEL_LAB=$(shown_path "$ZEL_LAB")
  command=("$(command -v wine64 || echo /usr/lib/wine/wine64)" "${command[@]}")
}

inside() {
  parse "$@"
  trap 'fail "line $LINENO: $BASH_COMMAND"' ERR
  private_files
  [ "$nameServer" = no ] || own_name_server
  build_network
  local extra relayNetwork=9
  [ "$relay" = no ] || connect_relay
  for extra in "${locals[@]}"; do in_host "${extra%% *}" ip route add local "${extra#* }" dev lo; done
  [ ${#links[@]} = 0 ] || send_real_segments
  for extra in "${links[@]}"; do shape_link "$extra"; done
  for extra in "${drops[@]}"; do drop "$extra"; done
  simPids=()
  local number=0 sim status=0
  for sim in "${sims[@]}"; do start_sim $((++number)) "$sim"; done
  [ "$wine" = no ] || prepare_wine
  trap - ERR
  "${command[@]}" || status=$?
  stop_sims
  exit "$status"
}

if [ "${1:-}" = --inside ]; then
  shift
  inside "$@"
else
  parse "$@"
  enter "$@"
fi
