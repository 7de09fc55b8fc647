# For lab scripts to source.

# Covers a directory by an empty one that still shows what was in it, but for the names that follow.
cover() {
  local directory=$1 entry name
  shift
  exec 9<"$directory"
  mount -t tmpfs -o mode=1777 lab "$directory"
  for entry in /proc/self/fd/9/* /proc/self/fd/9/.[!.]*; do
    name=${entry##*/}
    if [[ " $* " == *" $name "* ]]; then continue; fi
    if [ -L "$entry" ]; then
      cp -P "$entry" "$directory/"
    elif [ -d "$entry" ]; then
      mkdir -p "$directory/$name" && mount --no-canonicalize --rbind "$entry" "$directory/$name"
    elif [ -e "$entry" ]; then
      touch "$directory/$name" && mount --no-canonicalize --bind "$entry" "$directory/$name"
    fi
  done
  exec 9<&-
}
