# Makes DOCS/NAME.png of every CURVES/NAME.tsv. Usage: gnuplot -c plot.gp CURVES DOCS
#
# The first line of a table names its columns: the x axis, then one curve each. A column of zeros, such as that of lost
# requests, has no place on logarithmic axes.
curves = ARG1
docs = ARG2

set terminal pngcairo size 800,500 font "sans,11" noenhanced
set datafile separator "\t"
set logscale xy
set autoscale xfix
set grid
set key outside above horizontal
set style data linespoints
set pointsize 1.2

do for [table in system("ls " . curves . "/*.tsv")] {
  name = system("basename " . table . " .tsv")
  columns = system("awk -F'\t' '{ for (i = 2; i <= NF; i++) if (NR > 1 && $i > 0) seen[i] = 1 }" . \
                   " END { for (i = 2; i <= NF; i++) if (seen[i]) print i }' " . table)
  set output docs . "/" . name . ".png"
  set title system("echo " . name . " | tr _ ' '")
  set xlabel system("head -1 " . table . " | cut -f1")
  plot for [i in columns] table using 1:int(i) title columnheader(int(i)) linewidth 2
}
