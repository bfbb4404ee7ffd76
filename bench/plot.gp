# Makes DOCS/NAME.png of every CURVES/NAME.tsv. Usage: gnuplot -c plot.gp CURVES DOCS
#
# The first line of a table names its columns: the x axis, then one curve each.
curves = ARG1
docs = ARG2

set terminal pngcairo size 800,500 font "sans,11" noenhanced
set datafile separator "\t"
set logscale xy
set grid
set key top left
set style data linespoints
set pointsize 1.2

do for [table in system("ls " . curves . "/*.tsv")] {
  name = system("basename " . table . " .tsv")
  columns = int(system("awk -F'\t' 'NR == 1 { print NF }' " . table))
  set output docs . "/" . name . ".png"
  set title system("echo " . name . " | tr _ ' '")
  set xlabel system("head -1 " . table . " | cut -f1")
  plot for [i = 2 : columns] table using 1:i title columnheader(i) linewidth 2
}
