# Draws the growth that bench_scale measured: gnuplot -e "figures = 'FILE'" bench/scale.gnuplot >PICTURE.svg
set terminal svg size 960,420 font 'sans-serif,13' background '#ffffff' name 'scale' noenhanced
set multiplot layout 1,2
set logscale xy
set grid xtics ytics lc rgb '#dddddd'
set key off
set xrange [500:2e6]
set xlabel 'candidates, rules or characters'
set lmargin 9
set rmargin 3
set style data linespoints

of(family, column) = strcol(1) eq family ? column : NaN
array names[3] = ['candidates', 'rules', 'characters']
array titles[3] = ['candidates, all tested', 'bypass rules, all compared', 'characters of one rule, logged']
array colors[3] = ['#c0392b', '#2471a3', '#1e8449']

set format x '%.0s %c'
set title 'Processor time of a resolution (ms)'
set format y '%g'
plot for [i=1:3] figures using (of(names[i], $2)):($3 / 1e6) title titles[i] lc rgb colors[i] lw 2 pt 7 ps 0.6, \
  '+' using (10 ** (3 + 3 * $0 / 20)):(10 ** (3 + 3 * $0 / 20) * 1e-5) every ::::20 with lines title 'linear' lc rgb '#999999' dt 2
set title 'Most memory in use at a time (MiB)'
set key right bottom reverse Left
set yrange [0.005:]
plot for [i=1:3] figures using (of(names[i], $2)):($4 / 1048576.0) title titles[i] lc rgb colors[i] lw 2 pt 7 ps 0.6, \
  '+' using (10 ** (3 + 3 * $0 / 20)):(10 ** (3 + 3 * $0 / 20) * 2e-5) every ::::20 with lines title 'linear' lc rgb '#999999' dt 2
