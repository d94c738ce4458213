# Handshakes per second: a bar for each way to sign for each suite and number of threads, with the range over the rounds.
file = data . "/handshakes.dat"
names = data . "/handshakes.names"
set title "Full TLS handshakes per second; above a bar, its speed relative to the plain key" textcolor "#222222"
set ylabel "handshakes per second, both ends" textcolor "#222222"
set yrange [0:*]
set offsets 0, 0, graph 0.12, 0
set xrange [-0.6:7.6]
set format y "%'.0f"
set boxwidth 0.25
set style fill solid 0.9 noborder
set bmargin 4
set xtics scale 0 out
set key outside center top horizontal reverse Left samplen 1.5 textcolor "#222222"
ways = "plain provider callback"
shift(i) = (i - 1) * 0.27
plot for [i=0:2] file index i using ($1 + shift(i)):2 with boxes linetype i + 1 \
       title word(ways, i + 1), \
     for [i=0:2] file index i using ($1 + shift(i)):3:(0):($4 - $3) with vectors nohead linecolor "#222222" linewidth 1.5 notitle, \
     for [i=1:2] file index i using ($1 + shift(i)):4:5 with labels font ",9" offset 0,0.7 textcolor "#222222" notitle, \
     names using 1:(0):xticlabels(sprintf("%s\n%s thread%s", strcol(2), strcol(3), strcol(3) eq "1" ? "" : "s")) \
       with dots linecolor "#444444" notitle
