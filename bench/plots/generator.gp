# Time for a request of random bytes, by its size.
file = data . "/generator.dat"
stats data . "/generator.crossover" using 1 name "crossover" nooutput
set title "Time for one request of random bytes" textcolor "#222222"
set xlabel "bytes asked for" textcolor "#222222"
set ylabel "time" textcolor "#222222"
set logscale xy
set yrange [10:*]
set xrange [12:6000000]
set xtics ("16" 16, "64" 64, "256" 256, "1 KiB" 1024, "4 KiB" 4096, "16 KiB" 16384, "64 KiB" 65536, "1 MiB" 1048576)
set ytics ("10 ns" 10, "100 ns" 100, "1 µs" 1e3, "10 µs" 1e4, "100 µs" 1e5, "1 ms" 1e6)
set arrow from crossover_min, graph 0 to crossover_min, graph 1 nohead linecolor "#444444" dashtype 2
set label sprintf(" as fast at %.0f bytes", crossover_min) at crossover_min, graph 0.04 textcolor "#222222"
plot file using 1:2 with linespoints linetype 1, \
     file using 1:3 with linespoints linetype 2, \
     file using 1:4 with lines linetype 8 dashtype 2, \
     file every ::10 using 1:2:("library") with labels left offset 1,0.6 textcolor linetype 1, \
     file every ::10 using 1:3:("OpenSSL's own") with labels left offset 1,0 textcolor linetype 2, \
     file every ::10 using 1:4:("SHA-1 bound") with labels left offset 1,-0.6 textcolor linetype 8
