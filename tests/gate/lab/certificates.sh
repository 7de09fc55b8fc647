# For the scripts beside it to source: certificates in $work, made by openssl when they are needed.

# quiet COMMAND...: shows what it said only when it fails.
quiet() { "$@" >"$work/said" 2>&1 || { cat "$work/said" >&2; exit 97; }; }

make_authority() {
  quiet openssl req -x509 -newkey ec -pkeyopt ec_paramgen_curve:prime256v1 -nodes -days 2 -subj "/CN=$2" \
    -keyout "$work/$1.key" -out "$work/$1.pem"
}

# make_certificate AUTHORITY NAME HOST NAME...: the first host name is what the hub knows a site by.
make_certificate() {
  local authority=$1 name=$2 names
  shift 2
  names=$(printf ',DNS:%s' "$@")
  mkdir -p "$work/$name"
  quiet openssl req -newkey ec -pkeyopt ec_paramgen_curve:prime256v1 -nodes -subj "/CN=$1" \
    -keyout "$work/$name/server.key" -out "$work/$name/request.pem"
  quiet openssl x509 -req -in "$work/$name/request.pem" -CA "$work/$authority.pem" -CAkey "$work/$authority.key" \
    -CAcreateserial -days 2 -extfile <(echo "subjectAltName=${names#,}") -out "$work/$name/server.pem"
  cp "$work/ca.pem" "$work/$name/ca.pem"
}
