# The classes, relative to the raw OpenSSL calls, by size: a panel for each kind.
set terminal svg size 1100,860 font "Arial,12" background "#ffffff"
set logscale x
set xrange [0.12:20000]
set xtics ("16" 16, "64" 64, "256" 256, "1 KiB" 1024, "4 KiB" 4096, "16 KiB" 16384)
set format y "%.2f"
set xlabel "bytes in one call" textcolor "#222222"
set ylabel "relative speed" textcolor "#222222"
set arrow from 12, 1 to 20000, 1 nohead linecolor "#444444" linewidth 1
set offsets 0, 0, graph 0.05, graph 0.05
set multiplot layout 2,2 title "Speed of the classes relative to the raw OpenSSL calls (1.00: as fast; more is faster)" \
  textcolor "#222222"
topics = "digest hmac cipher wrap"
titles = "digests HMAC ciphers AES-key-wrap"
do for [k=1:4] {
  topic = word(topics, k)
  file = data . "/" . topic . ".dat"
  labels = data . "/" . topic . ".labels"
  set title word(titles, k) textcolor "#222222"
  plot for [i=0:*] file index i using 1:2 with linespoints linetype i + 1, \
       labels using (11):2:1:($3 + 1) with labels right font ",10" textcolor variable, \
       labels using (11.5):2:(3.5):($5 - $2):($3 + 1) with vectors nohead linewidth 0.5 linecolor variable
}
unset multiplot
