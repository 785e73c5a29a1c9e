#!/bin/sh
# A bus of its own for the Bluetooth tests: prints its address ("missing" without what the stand-in for BlueZ needs).
# When that comes back on standard input, the stand-in joins the bus: that of python3-dbusmock, or the script that is
# named. All ends with standard input: nothing outlives a test.
python=/usr/bin/python3 # the packages are for the system's own, which need not come first in PATH
"$python" -c 'import dbusmock, gi' 2>/dev/null || { echo missing; exit 0; }
dbus-daemon --session --nofork --nosyslog --print-address=1 2>/dev/null &
bus=$!
if read -r address; then
  export DBUS_SYSTEM_BUS_ADDRESS="$address"
  if [ $# -gt 0 ]; then
    "$python" "$1" >/dev/null &
  else
    "$python" -m dbusmock --system --template bluez5 >/dev/null &
  fi
  cat >/dev/null
  kill $!
fi
kill $bus
wait
