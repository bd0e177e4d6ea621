#!/usr/bin/env python3
""".xlsx workbooks written by qbconvert, read back with an independent reader (openpyxl),
beside the .csv and .xls of the same report.

Run by ctest as: xlsx_test.py QBCONVERT SOURCE_DIR
"""
import csv
import datetime
import os
import stat
import sys
import time
import unittest

import openpyxl
import xlrd
from openpyxl.utils.escape import unescape

import xls_test as xls  # the same program, home folder, types RDF and report lines

SAMPLES = os.path.join(xls.SOURCE, "samples")
RDF, line = xls.RDF, xls.line

# Windows-1252 text: "café" and the euro sign (byte 0x80).
REPORT = (line("D", "000123", "10/02/26", "1,234.5", "0.125", "abc", "caf\xe9 \u20ac5") +
          line("D", "42", "12/31/99", "(7.00)", "1.5", "17", "a\tb c\rd") +
          line("D", "ABC", "13/45/26", "n/a", "2e3", "1/2/26") +
          "T\r\n")


def day(text):
    """The date an mm/dd/yy or mm/dd/yyyy text stands for: two-digit years below 30 are 20xx."""
    month, dom, year = (int(part) for part in text.split("/"))
    if len(text.split("/")[2]) == 2:
        year += 2000 if year < 30 else 1900
    return datetime.datetime(year, month, dom)


class Workbooks(unittest.TestCase):
    setUp, tearDown, convert = xls.Workbooks.setUp, xls.Workbooks.tearDown, xls.Workbooks.convert

    def write(self, name, text, encoding="utf-8"):
        path = os.path.join(self.dir, name)
        with open(path, "w", newline="", encoding=encoding) as f:
            f.write(text)
        return path

    def log(self):
        with open(os.path.join(self.home, "log", "qbuia.log"), newline="", encoding="latin-1") as f:
            return f.read()

    @staticmethod
    def values(sheet):
        """Each row's values as a spreadsheet program shows them (_xHHHH_ escapes decoded)."""
        return [[unescape(c.value) if isinstance(c.value, str) else c.value for c in row]
                for row in sheet.iter_rows()]

    def test_values_types_formats_and_layout(self):
        rdf = self.write("t.rdf", RDF % "Types && Formats and a name longer than thirty")
        report = self.write("t.txt", REPORT, encoding="cp1252")
        out = os.path.join(self.dir, "t.xlsx")
        self.convert(report, rdf, out)
        book = openpyxl.load_workbook(out)
        self.assertEqual(book.sheetnames, ["Types && Formats and a name lo"])  # 30 characters
        sheet = book.worksheets[0]
        rows = self.values(sheet)
        self.assertEqual(rows[0], ["Kind", "Code", "Date", "Amount", "Rate", "Other", "Note"])
        # Text stays text in "@" columns; amounts are cleaned up; numbers and dates become
        # numbers elsewhere; the report's Windows-1252 text arrives whole.
        self.assertEqual(rows[1], [None, "000123", datetime.datetime(2026, 10, 2), 1234.5, 0.125,
                                   "abc", "caf\xe9 \u20ac5"])
        self.assertEqual(rows[2], [None, "42", datetime.datetime(1999, 12, 31), -7, 1.5, 17,
                                   "a\tb c\rd"])
        # Not a date, not a number: text. In a General column a date stays text.
        self.assertEqual(rows[3], [None, "ABC", "13/45/26", "n/a", 2000, "1/2/26", None])
        self.assertEqual(rows[4][0], "TOTAL")
        formats = ["@", "@", "mm/dd/yy", "0.000", "0.0#####", "General", "General"]
        self.assertEqual([sheet.column_dimensions[l].number_format for l in "ABCDEFG"], formats)
        self.assertEqual([sheet.cell(2, c).number_format for c in range(2, 8)], formats[1:])
        self.assertEqual([sheet.cell(1, c).font.b for c in range(1, 8)], [True] * 7)
        self.assertEqual([sheet.cell(2, c).font.b for c in range(1, 8)], [False] * 7)
        note = sheet.cell(2, 7).alignment
        self.assertEqual((note.wrap_text, note.vertical), (True, "top"))
        self.assertEqual(sheet.cell(2, 2).alignment.vertical, "top")  # every column, as one wraps
        widths = {k: int(v.width) for k, v in sheet.column_dimensions.items()}
        self.assertEqual(widths["G"], 40)                 # w4: 40 characters
        self.assertEqual(widths["B"], len("000123") + 1)  # AutoFit: the longest text
        self.assertEqual(widths["D"], len("1234.500") + 1)  # a number as its format shows it
        self.assertEqual([f for f in os.listdir(self.dir) if f.endswith(".part")], [])

    def test_every_character_of_a_text_is_read_back(self):
        # A NUL does not end its text; a text that looks like an escape, or becomes one before
        # a NUL or a control character, is read back as it is, not decoded.
        notes = ["HARBOR\x00IEW", "a\x01b\x1fc\x00", "_x0041_", "_X0041_", "_x0041\x01",
                 "_x0041\x00", "_x00_x004", "_x005F_"]
        rdf = self.write("t.rdf", RDF % "Any")
        report = self.write("t.txt", "".join(line("D", note=n) for n in notes), encoding="cp1252")
        out = os.path.join(self.dir, "t.xlsx")
        self.convert(report, rdf, out)
        sheet = openpyxl.load_workbook(out).worksheets[0]
        self.assertEqual(sheet.cell(2, 7).value, "HARBOR_x0000_IEW")  # as the sheet's XML has it
        self.assertEqual([row[6] for row in self.values(sheet)[1:]], notes)
        self.convert(report, rdf, os.path.join(self.dir, "t.csv"))
        with open(os.path.join(self.dir, "t.csv"), newline="", encoding="cp1252") as f:
            self.assertEqual([row[6] for row in csv.reader(f)][1:], notes)
        # U+FFFE and U+FFFF of a UTF-8 report, which XML may not hold, come back too.
        notes = ["a\ufffeb\uffffc", "_x0041\ufffe", "\uffff"]
        report = self.write("u.txt", "".join(line("D", note=n) for n in notes))
        self.convert(report, rdf, out, "--set", "encoding=utf-8")
        sheet = openpyxl.load_workbook(out).worksheets[0]
        self.assertEqual([row[6] for row in self.values(sheet)[1:]], notes)

    def test_samples_match_their_csv_and_xls(self):
        # Every sample: the .xlsx holds the .csv's rows, numbers and dates as numbers, and has
        # the .xls's sheet name, number formats, column widths and bold header.
        with open(os.path.join(SAMPLES, "samples.txt")) as f:
            pairs = [l.split()[:2] for l in f if l.strip() and not l.startswith("#")]
        for report, rdf in pairs:
            name = os.path.basename(report) + "." + rdf
            args = os.path.join(SAMPLES, report), os.path.join(SAMPLES, rdf)
            paths = {ext: os.path.join(self.dir, name + ext) for ext in (".csv", ".xls", ".xlsx")}
            for path in paths.values():
                self.convert(*args, path)
            # A PDF, and a report whose RDF says EN,utf-8, give UTF-8 text; the rest Windows-1252.
            with open(args[1], encoding="cp1252") as f:
                utf8 = report.endswith(".pdf") or "\nEN,utf-8" in f.read()
            with open(paths[".csv"], newline="", encoding="utf-8" if utf8 else "cp1252") as f:
                expected = list(csv.reader(f))
            book = openpyxl.load_workbook(paths[".xlsx"])
            sheet = book.worksheets[0]
            got = self.values(sheet)
            self.assertEqual(len(got), len(expected), name)
            self.assertEqual(got[0], expected[0], name)
            for row, (cells, texts) in enumerate(zip(got[1:], expected[1:]), 2):
                for column, (cell, text) in enumerate(zip(cells, texts), 1):
                    where = "%s row %d column %d" % (name, row, column)
                    if isinstance(cell, datetime.datetime):
                        self.assertEqual(cell, day(text), where)
                    elif isinstance(cell, (int, float)):
                        self.assertEqual(cell, float(text), where)
                    else:
                        self.assertEqual(cell or "", text, where)

            old = xlrd.open_workbook(paths[".xls"], formatting_info=True)
            old_sheet = old.sheet_by_index(0)
            self.assertEqual(book.sheetnames, [old_sheet.name], name)
            columns = len(expected[0])
            old_widths = [round((old_sheet.colinfo_map[c].width - 182) / 256) for c in range(columns)]
            widths = [int(sheet.column_dimensions[openpyxl.utils.get_column_letter(c + 1)].width)
                      for c in range(columns)]
            self.assertEqual(widths, old_widths, name)
            old_formats = [old.format_map[old.xf_list[old_sheet.colinfo_map[c].xf_index].format_key]
                           .format_str for c in range(columns)]
            letters = [openpyxl.utils.get_column_letter(c + 1) for c in range(columns)]
            self.assertEqual([sheet.column_dimensions[l].number_format for l in letters],
                             old_formats, name)
            self.assertTrue(all(sheet.cell(1, c + 1).font.b for c in range(columns)), name)

    def test_a_report_past_a_sheet_goes_on_on_a_second(self):
        # 1,100,000 records: 1,048,575 under the header on the first sheet, the rest under the
        # header again on "Big (2)". An .xls refuses the report and says to use .xlsx.
        rdf = self.write("big.rdf",
                         "RDF 0001T Big@B\r\nRDF 01 D\r\nDLM\r\n1,=,D,0,1,DET\r\nDLC\r\n"
                         "DET,0,0,1,3,7,=,,\r\nDET,0,0,2,11,8,=,,\r\n"
                         "FLD\r\n1,y,n0,1,0,Number,\r\n2,y,c,2,0,Name,\r\nRLF SECTION\r\nHD,Big\r\n")
        records = 1100000
        report = self.write("big.txt", "".join("D %07d R%07d\r\n" % (n, n)
                                               for n in range(1, records + 1)))
        out = os.path.join(self.dir, "big.xlsx")
        self.convert(report, rdf, out)
        self.assertIn('Sheet "Big" holds 1,048,576 rows, as many as a sheet holds: the rows go on '
                      'on sheet "Big (2)"', self.log())

        book = openpyxl.load_workbook(out, read_only=True)
        self.assertEqual(book.sheetnames, ["Big", "Big (2)"])
        first, second = book.worksheets
        self.assertEqual((first.max_row, first.max_column), (1048576, 2))
        self.assertEqual([[c.value for c in row] for row in first.iter_rows(max_row=2)],
                         [["Number", "Name"], [1, "R0000001"]])
        rows = list(second.iter_rows())
        self.assertEqual([c.value for c in rows[0]], ["Number", "Name"])
        self.assertTrue(all(c.font.b for c in rows[0]))
        self.assertEqual([c.value for c in rows[1]], [1048576, "R1048576"])
        self.assertEqual([c.value for c in rows[-1]], [records, "R%07d" % records])
        self.assertEqual(len(rows) - 1, records - 1048575)

        run = self.convert(report, rdf, os.path.join(self.dir, "big.xls"), ok=False)
        self.assertEqual(run.returncode, 1)
        self.assertIn("more than 65,536 rows, more than an .xls sheet holds: use .xlsx", run.stderr)

    def test_launch_opens_the_workbook(self):
        stub = self.write("stub.sh", "#!/bin/sh\necho \"$*\" > \"%s/launched\"\n" % self.dir)
        os.chmod(stub, stat.S_IRWXU)
        env = dict(os.environ, QUILLBROOK_SPREADSHEET=stub)
        rdf = self.write("t.rdf", RDF % "L")
        report = self.write("t.txt", REPORT, encoding="cp1252")
        out = os.path.join(self.dir, "my book.xlsx")
        self.convert(report, rdf, out, "--launch", "--set", "lmeth=1", env=env)
        launched = os.path.join(self.dir, "launched")
        for _ in range(100):  # the program starts detached
            if os.path.exists(launched) and os.path.getsize(launched):
                break
            time.sleep(0.05)
        with open(launched) as f:
            self.assertTrue(f.read().strip().endswith(out))


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1], verbosity=1)
