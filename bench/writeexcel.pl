#!/usr/bin/perl
# The baseline of the workbook benchmark: Spreadsheet::WriteExcel writing the same 65,000
# rows of 12 columns as bench_xls (a bold header row, text, dates, numbers with formats).
use strict;
use warnings;
use Spreadsheet::WriteExcel;
use Time::HiRes qw(time);

my $file = shift or die "usage: writeexcel.pl OUTPUT.xls\n";
my $start = time;
my $book = Spreadsheet::WriteExcel->new($file) or die "cannot write $file\n";
my $sheet = $book->add_worksheet('Bench');
my $bold = $book->add_format(bold => 1);
my %fmt = (c => $book->add_format(num_format => '@'), d => $book->add_format(num_format => 'mm/dd/yy'),
           n => $book->add_format(num_format => '0.00'), n0 => $book->add_format(num_format => '0'));
my @types = qw(c c d c n n n0 c n c n c);
$sheet->write(0, $_, "Column " . ($_ + 1), $bold) for 0 .. 11;
for my $r (0 .. 64999) {
    for my $c (0 .. 11) {
        my $t = $types[$c];
        if ($c == 0) { $sheet->write_string($r + 1, 0, "C" . (100000 + $r % 5000), $fmt{c}); }
        elsif ($c == 2) {
            my $day = 10 + $r % 18;  # 10/dd/26 as a day serial
            $sheet->write_number($r + 1, 2, 46295 + $day, $fmt{d});
        }
        elsif ($c == 4 || $c == 5 || $c == 8 || $c == 10) {
            $sheet->write_number($r + 1, $c, (($r * 37 + $c) % 100000) + (10 + $r % 90) / 100, $fmt{n});
        }
        elsif ($c == 6) { $sheet->write_number($r + 1, 6, $r % 5000, $fmt{n0}); }
        else { $sheet->write_string($r + 1, $c, "TEXT $c ROW $r", $fmt{c}); }
    }
}
$book->close();
printf "Spreadsheet::WriteExcel  %6.2f s  %9.0f rows/s\n", time - $start, 65000 / (time - $start);
