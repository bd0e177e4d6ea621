# The benchmark's extraction written in awk, for the side-by-side comparison: the same
# record lines recognised, the same header values carried, amounts cleaned the same way,
# the same CSV rows printed (byte for byte, CR LF included).
function trim(s) { sub(/^ +/, "", s); sub(/ +$/, "", s); return s }
function num(s,   neg) {
  neg = (s ~ /[(-]/ || s ~ /[cC][rR]/)
  gsub(/[()%#*$,+cdrCDR-]/, "", s)
  s = trim(s)
  return neg ? "-" s : s
}
function q(s) {  # CSV quoting of a text column
  if (s ~ /[,"]/) { gsub(/"/, "\"\"", s); return "\"" s "\"" }
  return s
}
function clear(   i) { for (i = 1; i <= 18; i++) f[i] = "" }
function emit() {
  if (!started) { print header; started = 1 }
  print q(f[1]) "," q(f[2]) "," q(f[3]) "," q(f[4]) "," q(f[5]) "," q(f[6]) "," f[7] "," \
        q(f[8]) "," q(f[9]) "," q(f[10]) "," q(f[11]) "," num(f[12]) "," num(f[13]) "," \
        num(f[14]) "," num(f[15]) "," num(f[16]) "," q(f[17]) "," q(f[18]) "\r"
  clear()
}
function record() { if (seen) emit(); seen = 1 }
BEGIN {
  header = "Record Type,Customer,Customer Name,Phone,Territory,Invoice,Date,PO,Terms,Rep," \
           "Warehouse,Qty,Amount,Tax,Freight,Total,Ship To,Via\r"
  clear()
}
{
  sub(/\r$/, "")
  if (substr($0, 1, 1) == "\f") $0 = substr($0, 2)
}
substr($0, 1, 9) == "NORTHGATE" || substr($0, 3, 7) == "INVOICE" || substr($0, 51, 11) == "(CONTINUED)" { next }
substr($0, 1, 8) == "CUSTOMER" {
  h2 = trim(substr($0, 11, 7)); h3 = trim(substr($0, 20, 30))
  h4 = trim(substr($0, 58, 12)); h5 = trim(substr($0, 82, 2)); next
}
substr($0, 13, 8) ~ /^[0-9][0-9]\/[0-9][0-9]\/[0-9][0-9]$/ && substr($0, 5, 6) ~ /^[0-9][0-9][0-9][0-9][0-9][0-9]$/ {
  record()
  f[2] = h2; f[3] = h3; f[4] = h4; f[5] = h5
  f[6] = trim(substr($0, 3, 8)); f[7] = trim(substr($0, 13, 8)); f[8] = trim(substr($0, 23, 9))
  f[9] = trim(substr($0, 36, 10)); f[10] = trim(substr($0, 47, 4)); f[11] = trim(substr($0, 53, 3))
  f[12] = trim(substr($0, 59, 6)); f[13] = trim(substr($0, 67, 12)); f[14] = trim(substr($0, 81, 10))
  f[15] = trim(substr($0, 93, 10)); f[16] = trim(substr($0, 105, 13)); next
}
substr($0, 13, 8) == "SHIP TO:" { f[17] = trim(substr($0, 22, 40)); f[18] = trim(substr($0, 68, 15)); next }
substr($0, 21, 14) == "CUSTOMER TOTAL" || substr($0, 21, 12) == "REGION TOTAL" {
  record()
  if (substr($0, 21, 1) == "C") { f[1] = "CUSTOMER TOTAL"; f[2] = h2; f[3] = h3 } else f[1] = "REGION TOTAL"
  f[13] = trim(substr($0, 67, 12)); f[14] = trim(substr($0, 81, 10))
  f[15] = trim(substr($0, 93, 10)); f[16] = trim(substr($0, 105, 13)); next
}
index($0, "END OF REPORT") { exit }
END { emit() }
