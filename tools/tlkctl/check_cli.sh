#!/bin/sh
# Runs the built tlkctl and checks exit codes and where usage goes.  Usage: check_cli.sh TLKCTL
tlkctl=${1:?usage: check_cli.sh path/to/tlkctl}
dir=$(mktemp -d)
trap 'rm -rf "$dir"' EXIT
checks=0
failed=0

# expect CODE STREAM PATTERN -- ARGS: runs tlkctl ARGS; its exit code must be CODE and STREAM
# (stdout or stderr) must match PATTERN (grep -E).
expect() {
  code=$1 stream=$2 pattern=$3
  shift 4
  "$tlkctl" "$@" >"$dir/out" 2>"$dir/err"
  got=$?
  checks=$((checks + 1))
  file="$dir/out"
  [ "$stream" = stderr ] && file="$dir/err"
  if [ "$got" -ne "$code" ] || ! grep -Eq -- "$pattern" "$file"; then
    failed=$((failed + 1))
    echo "FAIL: tlkctl $* gave $got (want $code), $stream:"
    cat "$file"
  fi
}

for cmd in demo monitor decode gencfg firewall table route nexthop "show devices" \
           "show interfaces" "show addresses" "show tables" "show routes" "show nexthops" \
           "show statelog" ifindex ifname; do
  # shellcheck disable=SC2086
  expect 0 stdout "^usage: tlkctl" -- $cmd --help
done
for cmd in "show cos" "show sa"; do
  # shellcheck disable=SC2086
  expect 0 stdout "^usage: tlkctl" -- $cmd --help
done
for cmd in "show bridges" "show vlans" "show macs"; do
  # shellcheck disable=SC2086
  expect 0 stdout "^usage: tlkctl" -- $cmd --help
done
expect 2 stderr "^usage: tlkctl show macs" -- show macs a b
expect 0 stdout "^ *1 +vlan-100 +1 +100 +1024 +2" -- show bridges
expect 0 stdout "^ *2 +v200 +200 +2 +72" -- show vlans
expect 0 stdout "^vlan-200 +02:00:5e:00:01:20 +200 +73" -- show macs
expect 0 stdout "^1 +02:00:5e:00:01:11 +100 +72" -- show macs 1
expect 1 stderr "no bridge domain 'nope'" -- show macs nope
expect 2 stderr "^usage: tlkctl show sa" -- show sa a b
expect 0 stdout "^2 +tunnel-b +0x2002 +inbound" -- show sa
expect 0 stdout "sadb name=tunnel-a direc=outbound spi=4097" -- show sa tunnel-a
expect 0 stdout "^policer +7 +- +10000000 bit/s" -- show cos
expect 0 stdout "^usage: tlkctl show devices" -- show --help
expect 0 stdout "^usage: tlkctl <command>" -- --help
expect 2 stderr "^usage: tlkctl monitor" -- monitor --bogus
expect 2 stderr "^usage: tlkctl decode" -- decode
expect 2 stderr "^usage: tlkctl show devices" -- show devices extra
expect 2 stderr "unknown command" -- frobnicate

expect 0 stdout "^8 notifications" -- monitor --demo 8 --save "$dir/heard.tlkc"
expect 0 stdout "\[session [0-9]+\] <- .* route +add +inet 10\.99\.0\.0 tid=0 plen=24" -- decode "$dir/heard.tlkc"
[ "$(wc -l <"$dir/out")" -eq 8 ] || { failed=$((failed + 1)); echo "FAIL: decode gave $(wc -l <"$dir/out") lines, want 8"; }
expect 0 stdout "^    0000  " -- decode "$dir/heard.tlkc" --full
printf 'not a capture at all\n' >"$dir/text"
expect 1 stderr "^tlkctl decode: .*: not a capture file" -- decode "$dir/text"
[ "$(wc -l <"$dir/err")" -eq 1 ] || { failed=$((failed + 1)); echo "FAIL: more than one error line"; }
head -c 50 "$dir/heard.tlkc" >"$dir/cut"
expect 1 stderr "truncated record head|runs past the end" -- decode "$dir/cut"
expect 1 stderr "No such file" -- decode "$dir/missing"
# A raw device message whose body is all ones (pointers of the record, were it read as one): its
# header is printed, and nothing crashes.
{ printf 'TLKC\001\000\020\000'; head -c 8 /dev/zero
  printf '\002\000\000\000\005\000\000\000'; head -c 8 /dev/zero; printf '\200\000\000\000'
  printf '\000\000\000\000\000\005\002\000\200\000\000\000'; head -c 116 /dev/zero | tr '\0' '\377'
} >"$dir/raw-ifdev"
expect 0 stdout "<- .* ifdev +change" -- decode "$dir/raw-ifdev"
expect 0 stdout "^71$" -- ifindex ge0.100
expect 0 stdout "^xe1.300$" -- ifname 83
expect 1 stderr "^tlkctl ifindex: nosuch.0: " -- ifindex nosuch.0
expect 2 stderr "^usage: tlkctl ifname" -- ifname x
expect 0 stdout "^IFL seq [0-9]+ del 0xf pid 0 rt_sid 0$" -- show statelog
expect 0 stdout "^IFS EndOfChain client tlkctl$" -- show statelog --follow

if [ "$failed" -eq 0 ]; then
  echo "tlkctl_cli: all $checks checks passed"
else
  echo "tlkctl_cli: $failed failed"
  exit 1
fi
