# The generator relative to OpenSSL's own, by the size of the request, with the interval of each point.
set terminal svg size 960,520 font "Arial,13" background "#ffffff"
set title "Random bytes: speed relative to OpenSSL's generator" textcolor "#222222"
set xlabel "bytes asked for" textcolor "#222222"
set ylabel "relative speed (1: as fast; more is faster); bars: interval of the median" textcolor "#222222"
set logscale xy
set xrange [12:6000000]
set xtics ("16" 16, "64" 64, "256" 256, "1 KiB" 1024, "4 KiB" 4096, "16 KiB" 16384, "64 KiB" 65536, "1 MiB" 1048576)
set ytics (0.05, 0.1, 0.2, 0.5, 1, 2, 5, 10, 20, 50)
set arrow from graph 0, first 1 to graph 1, first 1 nohead linecolor "#444444" linewidth 1
set arrow from 1024, graph 0 to 1024, graph 1 nohead linecolor "#009e73" linewidth 1
set label "aim: faster below 1 KiB" at 1024, graph 0.97 offset 1,0 textcolor "#009e73"
plot file using 1:2:3:4 with yerrorlines linetype 1, \
     file using 1:5:6:7 with yerrorlines linetype 8, \
     file every ::10 using 1:2:("library") with labels left offset 1,-0.3 textcolor linetype 1, \
     file every ::10 using 1:5:("SHA-1 bound") with labels left offset 1,0.5 textcolor linetype 8
