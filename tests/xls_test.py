#!/usr/bin/env python3
"""Workbooks written by qbconvert, read back with an independent reader (xlrd).

Run by ctest as: xls_test.py QBCONVERT SOURCE_DIR
"""
import os
import shutil
import stat
import subprocess
import sys
import tempfile
import time
import unittest

import xlrd

QBCONVERT = sys.argv[1] if len(sys.argv) > 1 else "build/bin/qbconvert"
SOURCE = sys.argv[2] if len(sys.argv) > 2 else "."
SAMPLES = os.path.join(SOURCE, "samples")

RDF = (
    "RDF 0001T Types@T\r\nRDF 01 D\r\nDLM\r\n1,=,D,0,1,DET\r\n1,=,T,0,1,TOT\r\nDLC\r\n"
    "DET,0,0,2,3,6,=,,\r\nDET,0,0,3,10,8,=,,\r\nDET,0,0,4,19,8,=,,\r\nDET,0,0,5,28,9,=,,\r\n"
    "DET,0,0,6,38,6,=,,\r\nDET,0,0,7,45,12,=,,\r\nTOT,0,0,1,1,1,a,TOTAL,set\r\n"
    "FLD\r\n1,y,r,1,0,Kind,\r\n2,y,c,2,0,Code,\r\n3,y,d,3,0,Date,\r\n4,y,n3,4,0,Amount,\r\n"
    "5,y,nf,5,0,Rate,\r\n6,y,zz,6,0,Other,\r\n7,y,w4,7,0,Note,\r\n"
    "RLF SECTION\r\nHD,%s\r\n")


def line(kind, code="", date="", amount="", rate="", other="", note=""):
    """A report line: code at 3, date at 10, amount at 19, rate at 28, other at 38, note at 45."""
    return "%s %-6s %-8s %-8s %-9s %-6s %s\r\n" % (kind, code, date, amount, rate, other, note)


REPORT = (line("D", "000123", "10/02/26", "1234.5", "0.125", "abc", "wrapped note") +
          line("D", "42", "12/31/99", "-7", "1.5", "17", "x") +
          line("D", "ABC", "13/45/26", "n/a", "2e3", "1/2/26") +
          "T\r\n")


class Workbooks(unittest.TestCase):
    def setUp(self):
        self.dir = tempfile.mkdtemp(prefix="qbxls.")
        self.home = os.path.join(self.dir, "home")
        os.makedirs(os.path.join(self.home, "log"))
        shutil.copy(os.path.join(SOURCE, "settings", "qbsys.txt"), self.home)

    def tearDown(self):
        shutil.rmtree(self.dir)

    def convert(self, report, rdf, out, *extra, ok=True, env=None):
        cmd = [QBCONVERT, "--home", self.home, "--report", report, "--rdf", rdf, "--output", out,
               "--overwrite", "--quiet", "--set", "outdir=" + self.dir, *extra]
        run = subprocess.run(cmd, capture_output=True, text=True, env=env)
        if ok:
            self.assertEqual(run.returncode, 0, run.stderr)
        return run

    def write(self, name, text):
        path = os.path.join(self.dir, name)
        with open(path, "w", newline="") as f:
            f.write(text)
        return path

    def cells(self, path):
        book = xlrd.open_workbook(path, formatting_info=True)
        sheet = book.sheet_by_index(0)
        return book, sheet, [[(c.ctype, c.value) for c in sheet.row(r)] for r in range(sheet.nrows)]

    def test_values_types_formats_and_layout(self):
        rdf = self.write("t.rdf", RDF % "Types && Formats and a name longer than thirty")
        report = self.write("t.txt", REPORT)
        out = os.path.join(self.dir, "t.xls")
        self.convert(report, rdf, out, "--set", "rmode=0")
        book, sheet, rows = self.cells(out)
        T, N, D, E = xlrd.XL_CELL_TEXT, xlrd.XL_CELL_NUMBER, xlrd.XL_CELL_DATE, xlrd.XL_CELL_EMPTY
        self.assertEqual(sheet.name, "Types && Formats and a name lo")  # 30 characters, && kept
        self.assertEqual(rows[0], [(T, "Kind"), (T, "Code"), (T, "Date"), (T, "Amount"),
                                   (T, "Rate"), (T, "Other"), (T, "Note")])
        # Text stays text in "@" columns; numbers and dates become numbers elsewhere.
        self.assertEqual(rows[1], [(E, ""), (T, "000123"), (D, 46297.0), (N, 1234.5), (N, 0.125),
                                   (T, "abc"), (T, "wrapped note")])
        self.assertEqual(rows[2][1:5], [(T, "42"), (D, 36525.0), (N, -7.0), (N, 1.5)])
        self.assertEqual(rows[2][5], (N, 17.0))  # General column: a number
        # Not a date, not a number: text. In a General column a date stays text.
        self.assertEqual(rows[3][1:7], [(T, "ABC"), (T, "13/45/26"), (T, "n/a"), (N, 2000.0),
                                        (T, "1/2/26"), (E, "")])
        self.assertEqual(rows[4][0], (T, "TOTAL"))

        def fmt(col):
            return book.format_map[book.xf_list[sheet.cell_xf_index(1, col)].format_key].format_str
        self.assertEqual([fmt(c) for c in range(7)],
                         ["@", "@", "mm/dd/yy", "0.000", "0.0#####", "General", "General"])
        for c in range(7):  # the header row is bold
            self.assertEqual(book.font_list[book.xf_list[sheet.cell_xf_index(0, c)].font_index].weight, 700)
        note = book.xf_list[sheet.colinfo_map[6].xf_index]
        self.assertEqual(note.alignment.text_wrapped, 1)
        self.assertEqual(round((sheet.colinfo_map[6].width - 182) / 256), 40)  # w4: 40 characters
        self.assertEqual(note.alignment.vert_align, 0)  # top, since a wrap column exists
        # AutoFit: the name column fits its longest text.
        self.assertEqual(round((sheet.colinfo_map[1].width - 182) / 256), len("000123") + 1)

    def test_buffer_modes_give_the_same_cells(self):
        rdf = self.write("t.rdf", RDF % "A&&B")
        report = self.write("t.txt", REPORT)
        results = {}
        for mode in ("0", "3", "6"):
            out = os.path.join(self.dir, "m%s.xls" % mode)
            self.convert(report, rdf, out, "--set", "rmode=" + mode)
            book, sheet, rows = self.cells(out)
            results[mode] = rows
            self.assertEqual(sheet.name, "A&B" if mode == "6" else "A&&B")
        self.assertEqual(results["0"], results["3"])
        self.assertEqual(results["0"], results["6"])
        self.assertEqual([f for f in os.listdir(self.dir) if f.endswith(".tmp")], [])  # turbo file gone

    def test_every_value_survives_every_buffer_mode(self):
        # A Tab and a CR inside values, and a text longer than a cell holds (gathered with
        # "cat" from 100 lines): no cell moves, the long text is cut to 32,767 characters and
        # the log says which cell.
        rdf = self.write("v.rdf",
                         "RDF 0001T Values@V\r\nRDF 01 D\r\nDLM\r\n1,=,D,1,1,DET\r\n"
                         "1,=,L,0,0,LONG\r\nDLC\r\nDET,0,0,1,3,10,=,,\r\nDET,0,0,2,14,5,=,,\r\n"
                         "LONG,0,0,1,3,400,a,,cat\r\n"
                         "FLD\r\n1,y,c,1,0,Text,\r\n2,y,c,2,0,After,\r\n")
        long_lines = "".join("L " + chr(65 + i % 26) * 400 + "\r\n" for i in range(100))
        def row(text, after):
            return "D %-10s %s\r\n" % (text, after)  # text at 3, after at 14
        report = self.write("v.txt", row("a\tb", "next") + row("c\rd", "next") +
                            row("long", "last") + long_lines)
        expected_long = ("long " + " ".join(chr(65 + i % 26) * 400 for i in range(100)))[:32767]
        for mode in ("0", "3", "6"):
            out = os.path.join(self.dir, "v%s.xls" % mode)
            run = self.convert(report, rdf, out, "--set", "rmode=" + mode)
            self.assertEqual(run.stderr, "", mode)
            _, sheet, rows = self.cells(out)
            values = [[v for _, v in row] for row in rows]
            self.assertEqual(values[1], ["a\tb", "next"], mode)
            self.assertEqual(values[2], ["c\rd", "next"], mode)
            self.assertEqual(values[3][0], expected_long, mode)
            self.assertEqual(values[3][1], "last", mode)
            with open(os.path.join(self.home, "log", "qbuia.log"), newline="") as f:
                log = f.read()
            self.assertIn("Row 4, column 1: a text of 40104 characters was cut to the 32767 a cell holds", log)
            os.remove(os.path.join(self.home, "log", "qbuia.log"))

    def test_unicode_text_of_a_utf8_report_in_every_buffer_mode(self):
        # Greek, Cyrillic, a euro sign and a letter past U+FFFF (which a BIFF8 cell cannot
        # hold in one unit: it becomes U+FFFD), each one column of the report; the amount
        # after them stays in its column, and its Unicode minus sign makes it negative.
        rdf = self.write("u.rdf",
                         "RDF 0001T Unicode@U\r\nRDF 01 D\r\nDLM\r\n"
                         "1,=,D,0,1,DET\r\nDLC\r\nDET,0,0,1,3,12,=,,\r\nDET,0,0,2,16,9,=,,\r\n"
                         "FLD\r\n1,y,c,1,0,\u041d\u0430\u0437\u0432\u0430\u043d\u0438\u0435,\r\n"
                         "2,y,n,2,0,Amount,\r\nRLF SECTION\r\n"
                         "HD,\u0394\u03b5\u03bb\u03c4\u03af\u03bf\r\n")
        with open(rdf, "rb") as f:
            text = f.read()
        with open(rdf, "wb") as f:
            f.write(b"\xef\xbb\xbf" + text)  # a UTF-8 RDF by its byte-order mark
        names = ["\u0391\u03b8\u03ae\u03bd\u03b1", "\u041c\u043e\u0441\u043a\u0432\u0430 \u20ac5",
                 "caf\u00e9 \U0001F600"]
        report = self.write("u.txt", "".join("D %-12s %s\r\n" % (n, a) for n, a in
                                             zip(names, ["1,234.50", "\u22127.25", "3.00"])))
        for mode in "0123456":
            out = os.path.join(self.dir, "u%s.xls" % mode)
            self.convert(report, rdf, out, "--set", "rmode=" + mode, "--set", "encoding=utf-8")
            book, sheet, rows = self.cells(out)
            self.assertEqual(sheet.name, "\u0394\u03b5\u03bb\u03c4\u03af\u03bf", mode)
            self.assertEqual([v for _, v in rows[0]],
                             ["\u041d\u0430\u0437\u0432\u0430\u043d\u0438\u0435", "Amount"], mode)
            self.assertEqual([[v for _, v in row] for row in rows[1:]],
                             [[names[0], 1234.5], [names[1], -7.25], ["caf\u00e9 \ufffd", 3.0]],
                             mode)

    def test_samples_in_turbo_mode_match_their_csv(self):
        for report, rdf in (("ARINV01.txt", "ARINV01.rdf"), ("GLDET01.txt", "GLDET01.rdf"),
                            ("APCHK01D.txt", "APCHK01.rdf")):
            out = os.path.join(self.dir, report + ".xls")
            self.convert(os.path.join(SAMPLES, report), os.path.join(SAMPLES, rdf), out)
            _, sheet, rows = self.cells(out)
            with open(os.path.join(SOURCE, "tests", "golden", report[:-4] + ".csv"), newline="") as f:
                golden = [line.rstrip("\r\n") for line in f]
            self.assertEqual(sheet.nrows, len(golden), report)
            self.assertEqual([v for _, v in rows[0]], golden[0].split(","))

    def test_no_data_row_gives_only_the_named_sheet(self):
        rdf = self.write("t.rdf", RDF % "Empty")
        report = self.write("t.txt", "D 000001\r\nD 000002\r\n")
        for mode in ("0", "2"):
            out = os.path.join(self.dir, "e%s.xls" % mode)
            self.convert(report, rdf, out, "--set", "rmode=" + mode, "--set", "rtype=Totals Only")
            book, sheet, rows = self.cells(out)
            self.assertEqual((book.nsheets, sheet.name, sheet.nrows), (1, "Empty", 0))

    def test_launch_methods_start_the_program_they_should(self):
        stub = self.write("stub.sh", "#!/bin/sh\necho \"$PWD|$*\" > \"%s/launched\"\n" % self.dir)
        os.chmod(stub, stat.S_IRWXU)
        bindir = os.path.join(self.dir, "bin")
        os.makedirs(bindir)
        shutil.copy(stub, os.path.join(bindir, "xdg-open"))
        env = dict(os.environ, QUILLBROOK_SPREADSHEET=stub, PATH=bindir + ":" + os.environ["PATH"])
        rdf = self.write("t.rdf", RDF % "L")
        report = self.write("t.txt", REPORT)
        folder = os.path.join(self.dir, "out dir")
        os.makedirs(folder)
        out = os.path.join(folder, "my book.xls")
        expected = {"1": "|" + out, "2": folder + "|my book.xls", "3": "|" + out}
        for method, want in expected.items():
            launched = os.path.join(self.dir, "launched")
            if os.path.exists(launched):
                os.remove(launched)
            self.convert(report, rdf, out, "--launch", "--set", "lmeth=" + method, env=env)
            got = ""
            for _ in range(100):  # the program starts detached
                if os.path.exists(launched):
                    with open(launched) as f:
                        got = f.read().strip()
                    if got:
                        break
                time.sleep(0.05)
            self.assertTrue(got.endswith(want), (method, got))
        # A program that cannot start: the "File Open Error" message.
        env["QUILLBROOK_SPREADSHEET"] = os.path.join(self.dir, "no-such-program")
        run = self.convert(report, rdf, out, "--launch", "--set", "lmeth=2", env=env)
        self.assertIn("File Open Error: Error 2\nOpening Output File.", run.stderr)

    def test_libreoffice_opens_a_workbook(self):
        soffice = shutil.which("soffice")
        if not soffice:
            self.skipTest("LibreOffice is not installed (apt-get install libreoffice-calc-nogui)")
        out = os.path.join(self.dir, "lo.xls")
        self.convert(os.path.join(SAMPLES, "ARINV01.txt"), os.path.join(SAMPLES, "ARINV01.rdf"), out)
        subprocess.run([soffice, "--headless", "-env:UserInstallation=file://" + self.dir + "/lo",
                        "--convert-to", "csv", "--outdir", self.dir, out],
                       capture_output=True, timeout=180, check=True)
        with open(os.path.join(self.dir, "lo.csv")) as f:
            lines = f.read().splitlines()
        self.assertEqual(lines[0], "Record Type,Customer,Customer Name,Invoice,Invoice Date,PO Number,"
                                   "Amount,Tax,Total,Ship To")
        self.assertEqual(len(lines), 16)


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1], verbosity=1)
