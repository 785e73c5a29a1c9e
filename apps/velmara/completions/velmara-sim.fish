# Completion of velmara-sim for fish. Made by script/completions.
complete -c velmara-sim -f
complete -c velmara-sim -s h -l help -d 'Print this help message and exit'
complete -c velmara-sim -l vehicle -x -a 'can11-250 can29-250 diesel-truck eight-units hybrid iso9141 j1850-pwm j1850-vpw kwp-fast kwp-slow petrol-can11 petrol-can29' -d 'Built-in vehicle or vehicle file'
complete -c velmara-sim -l adapter -x -a 'elm10 elm12 elm15 elm21 elm22 stn obdkey diamex obdpro kiwi unknown' -d 'Kind of adapter'
complete -c velmara-sim -l trace -r -F -d 'Answer from a trace instead, which velmara --trace writes'
complete -c velmara-sim -l baud -x -a '9600 19200 38400 57600 115200' -d 'Rate at which the adapter starts'
complete -c velmara-sim -l latency -x -d 'Milliseconds that the vehicle takes to answer'
complete -c velmara-sim -l silence -x -d 'Milliseconds before NO DATA, instead of what ATST says'
complete -c velmara-sim -l fault -x -d 'Faults by script'
complete -c velmara-sim -l tcp -x -d 'Serve on this TCP port of 127.0.0.1'
complete -c velmara-sim -l pty -d 'Serve on a pseudo-terminal'
complete -c velmara-sim -l list -d 'List vehicles and adapters'
