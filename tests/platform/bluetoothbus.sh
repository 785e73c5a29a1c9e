#!/bin/sh
# A bus of its own for the Bluetooth tests: prints its address ("missing" without python3-dbusmock). When that comes
# back on standard input, a stand-in for BlueZ joins the bus. All ends with standard input: nothing outlives a test.
python=/usr/bin/python3 # the package is for the system's own, which need not come first in PATH
"$python" -c 'import dbusmock' 2>/dev/null || { echo missing; exit 0; }
dbus-daemon --session --nofork --nosyslog --print-address=1 2>/dev/null &
bus=$!
if read -r address; then
  DBUS_SYSTEM_BUS_ADDRESS="$address" "$python" -m dbusmock --system --template bluez5 >/dev/null &
  cat >/dev/null
  kill $!
fi
kill $bus
wait
