# Sourced: starts a private session bus and vexa-helper on it, in a folder of its own, for the
# benchmarks that reach the helper. Needs $build (with vexa-helper built); sets
# VEXA_HELPER_BUS_ADDRESS, $helper_pids (kill them when done) and $helper_work (remove it).
helper_work="$(mktemp -d)"
cat > "$helper_work/bus.conf" <<CONF
<busconfig><type>session</type><listen>unix:path=$helper_work/socket</listen><auth>EXTERNAL</auth>
<policy context="default"><allow user="*"/><allow send_destination="*" eavesdrop="true"/>
<allow eavesdrop="true"/><allow own="*"/></policy>
</busconfig>
CONF
dbus-daemon --config-file="$helper_work/bus.conf" --nofork --print-address=1 > "$helper_work/address" &
helper_pids=$!
wait_for() {  # wait_for COMMAND...: up to 10 s
  for _ in $(seq 200); do "$@" && return 0; sleep 0.05; done
  echo "gave up waiting for: $*" >&2; exit 1
}
wait_for test -s "$helper_work/address"
export VEXA_HELPER_BUS_ADDRESS="$(head -n 1 "$helper_work/address")"
"$build/tools/vexa-helper/vexa-helper" > "$helper_work/helper.log" &
helper_pids="$helper_pids $!"
wait_for grep -q ready "$helper_work/helper.log"
