# The placement of bench/delimited.rdf in awk, for the side-by-side comparison of delimited
# input: each comma-separated field at its DFC column (every field of this data fits the
# columns before the next one), one placed line printed for each input line, the way an awk
# user would write it: one printf. Its lines keep their trailing blanks (trimming them with
# sub() made mawk ten times slower).
BEGIN { FS = "," }
{
  sub(/\r$/, "")
  printf "%-16s%-9s%-27s%-14s%-14s%-10s%-10s%-11s%-12s%-11s%-6s%-7s%-13s%-12s%-11s%-13s%-26s%-24s\n", $1, $2, $3, $4, $5, $6, $7, $8, $9, $10, $11, $12, $13, $14, $15, $16, $17, $18
}
