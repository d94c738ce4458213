# Signatures through the engine, relative to OpenSSL's own methods: a point and the range over the rounds.
file = data . "/signatures.dat"
set title "Speed of a signature through the engine, relative to OpenSSL's own method" textcolor "#222222"
set xlabel "relative speed (1.00: as fast; more is faster); bar: range over the rounds" textcolor "#222222"
set grid xtics noytics linecolor "#dddddd" linetype 1 linewidth 1
set format x "%.2f"
set offsets graph 0.02, graph 0.02, 0.6, 0.6
set yrange [*:*] reverse
set lmargin 30
set arrow from 1, graph 0 to 1, graph 1 nohead linecolor "#444444" linewidth 1
plot file using 3:1:4:5:ytic(2) with xerrorbars linetype 1 linewidth 2 pointsize 0.8, \
     file using 3:1:6 with labels offset 0,0.9 textcolor "#222222"
