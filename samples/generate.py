#!/usr/bin/env python3
"""Writes the sample print-image reports in this folder.

The reports are fixed-column text with CR LF line ends and form feeds between pages, the
way business systems print to a file. Run it again after changing the data; the RDFs beside
the reports describe these exact columns.
"""
import os

HERE = os.path.dirname(os.path.abspath(__file__))


def write(name, lines, encoding="ascii"):
    with open(os.path.join(HERE, name), "wb") as f:
        f.write("".join(line + "\r\n" for line in lines).encode(encoding))


def money(v, trailing_minus=False, parens=False, cr=False):
    s = f"{abs(v):,.2f}"
    if v < 0:
        if parens:
            return f"({s})"
        if cr:
            return s + "CR"
        if trailing_minus:
            return s + "-"
        return "-" + s
    return s


# ---------------------------------------------------------------------------------------
# ARINV01: invoice register. Customer header, one- or two-line invoices (a SHIP TO line
# follows some), customer totals, page headers with form feeds, a report total.
CUSTOMERS = [
    ("C10045", "HARBORVIEW MARINE SUPPLY", [
        ("100231", "10/02/26", "PO-7781", "NET 30", 1234.50, 86.42, "455 HARBOR ROAD, PORTLAND ME"),
        ("100238", "10/06/26", "PO-7790", "NET 30", 310.00, 21.70, None),
        ("CM1007", "10/15/26", "RETURN", "NET 30", -125.00, -8.75, None),
    ]),
    ("C10112", "BIRCH & STONE LANDSCAPING", [
        ("100240", "10/07/26", "BS-2026-114", "2% 10 NET", 5870.25, 410.92, "RT 9 YARD, GORHAM ME"),
        ("100251", "10/14/26", "BS-2026-120", "2% 10 NET", 96.00, 6.72, None),
    ]),
    ("C10200", "QUARRY LANE BAKERY", [
        ("100255", "10/16/26", "", "COD", 48.60, 0.00, None),
    ]),
    ("C10307", "TIDEWATER \"EAST\" CLINIC", [
        ("100260", "10/20/26", "TW-55, REV 2", "NET 45", 12750.00, 0.00, "ATTN: RECEIVING, 12 DOCK ST"),
        ("100262", "10/21/26", "TW-56", "NET 45", 2200.00, 154.00, None),
        ("100270", "10/28/26", "TW-61", "NET 45", 845.10, 59.16, None),
        ("CM1011", "10/30/26", "PRICE ADJ", "NET 45", -45.10, -3.16, None),
    ]),
]


def invoice_register():
    out, page, lines_on_page = [], 0, 99
    grand = [0.0, 0.0, 0.0]

    def header():
        nonlocal page, lines_on_page
        page += 1
        lines_on_page = 0
        out.append("\f" + f"{'NORTHGATE DISTRIBUTION INC.':<40}{'INVOICE REGISTER':<45}PAGE {page:>4}")
        out.append(f"{'ARINV01':<40}{'FOR PERIOD ENDING 10/31/26':<45}RUN DATE 11/02/26")
        out.append("")
        out.append("  INVOICE   DATE      PO NUMBER     TERMS             AMOUNT         TAX         TOTAL")
        out.append("  " + "-" * 82)

    def emit(line, cust=None):
        nonlocal lines_on_page
        if lines_on_page >= 14:
            header()
            if cust:
                out.append(f"CUSTOMER  {cust[0]:<6}  {cust[1]:<30}  (CONTINUED)")
        out.append(line)
        lines_on_page += 1

    header()
    out[0] = out[0][1:]  # the first page starts without a form feed
    for cid, name, invoices in CUSTOMERS:
        emit(f"CUSTOMER  {cid:<6}  {name:<30}")
        tot = [0.0, 0.0, 0.0]
        for inv, date, po, terms, amt, tax, ship in invoices:
            total = amt + tax
            emit(f"  {inv:<6}  {date:8}  {po:<12}  {terms:<10}  {money(amt, parens=True):>12}"
                 f"  {money(tax, parens=True):>10}  {money(total, parens=True):>12}", (cid, name))
            if ship:
                emit(f"          SHIP TO: {ship:<40}", (cid, name))
            for i, v in enumerate((amt, tax, total)):
                tot[i] += v
        emit(f"{'':20}{'CUSTOMER TOTAL':<24}  {money(tot[0], cr=True):>12}  {money(tot[1], cr=True):>10}"
             f"  {money(tot[2], cr=True):>12}")
        emit("")
        for i in range(3):
            grand[i] += tot[i]
    emit(f"{'':20}{'REPORT TOTAL':<24}  {money(grand[0]):>12}  {money(grand[1]):>10}  {money(grand[2]):>12}")
    emit("")
    emit(f"{'':30}*** END OF REPORT ***")
    write("ARINV01.txt", out)


# ---------------------------------------------------------------------------------------
# ARAGE02: aged trial balance. Customer line plus a phone line, trailing minus for credits,
# a totals line. The program name stands in columns 1 to 8 of line 1.
AGING = [
    ("100200", "ALDER CREEK HARDWARE", 1250.00, 300.00, 0, 0, "207-555-0142", 5000),
    ("100215", "BLUE FIR CONSTRUCTION", 0, 4120.75, 2200.00, 0, "207-555-0177", 10000),
    ("100233", "CASCO BAY OUTFITTERS", -85.00, 0, 0, 0, "207-555-0103", 2500),
    ("100240", "DEERING OAKS DENTAL", 640.00, 0, 0, 1895.40, "207-555-0190", 3000),
    ("100262", "EASTERN PROM CAFE", 212.36, 57.10, 0, 0, "207-555-0111", 1000),
    ("100281", "FORE RIVER MACHINE WORKS", 15880.00, 0, 3340.20, 612.00, "207-555-0125", 25000),
    ("100299", "GREAT DIAMOND ISLAND INN", 0, 0, 0, 4410.00, "207-555-0168", 8000),
]


def aged_trial_balance():
    out = []
    page = 0

    def header():
        nonlocal page
        page += 1
        out.append(("\f" if page > 1 else "") +
                   f"ARAGE02  {'LEDGERLINE FINANCIALS - ACCOUNTS RECEIVABLE':<48}AGED TRIAL BALANCE AS OF 10/31/26   PAGE {page}")
        out.append("")
        out.append("CUST NO  CUSTOMER NAME                     CURRENT  31-60 DAYS  61-90 DAYS     OVER 90     BALANCE")
        out.append("-------  -----------------------------  ----------  ----------  ----------  ----------  ----------")

    header()
    totals = [0.0] * 5
    for n, (no, name, cur, d30, d60, d90, phone, limit) in enumerate(AGING):
        if n == 4:
            header()
        bal = cur + d30 + d60 + d90
        vals = (cur, d30, d60, d90, bal)
        out.append(f"{no:<6}   {name:<29}  " + "  ".join(f"{money(v, trailing_minus=True):>10}" for v in vals))
        out.append(f"{'':9}PHONE {phone:<12}  CREDIT LIMIT {limit:>9,}")
        for i, v in enumerate(vals):
            totals[i] += v
    out.append("")
    out.append(f"{'':9}{'** TOTALS **':<29}  " + "  ".join(f"{money(v, trailing_minus=True):>10}" for v in totals))
    write("ARAGE02.txt", out)


# ---------------------------------------------------------------------------------------
# GLDET01: general ledger detail. Account headers, transactions with zero, one or two
# continuation lines of description, account totals.
ACCOUNTS = [
    ("1010-000", "CASH - OPERATING", 152340.12, [
        ("10/01/26", "CR", "DEP1001", "DEPOSIT - LOCKBOX", 12500.00, 0, []),
        ("10/03/26", "CD", "CHK20455", "NORTHWIND PAPER CO", 0, 1240.16, ["INV 88812 OCT SUPPLIES"]),
        ("10/09/26", "CD", "CHK20461", "PINE STATE UTILITIES", 0, 2310.44,
         ["ACCT 4471-02", "SEPT SERVICE, MAIN PLANT"]),
        ("10/31/26", "GJ", "JE10-31", "BANK FEES OCTOBER", 0, 45.00, []),
    ]),
    ("4000-100", "SALES - WHOLESALE", -840112.55, [
        ("10/02/26", "SJ", "INV100231", "HARBORVIEW MARINE SUPPLY", 0, 1234.50, []),
        ("10/15/26", "SJ", "CM1007", "HARBORVIEW MARINE SUPPLY", 125.00, 0, ["RETURN OF DAMAGED GOODS"]),
    ]),
]


def gl_detail():
    out = [f"GLDET01{'':22}{'GENERAL LEDGER DETAIL':<42}PERIOD 10/2026   PAGE 1", ""]
    for acct, name, begin, txns in ACCOUNTS:
        out.append(f"ACCOUNT {acct}  {name:<30}{'':15}BEGINNING BALANCE {money(begin, trailing_minus=True):>15}")
        out.append("  DATE      JRNL  REF        DESCRIPTION                          DEBIT          CREDIT")
        dr = cr = 0.0
        for date, jrnl, ref, desc, debit, credit, more in txns:
            out.append(f"  {date}  {jrnl:<4}  {ref:<9}  {desc:<30}  {money(debit) if debit else '':>12}"
                       f"  {money(credit) if credit else '':>14}")
            for m in more:
                out.append(f"{'':29}{m}")
            dr += debit
            cr += credit
        out.append(f"{'':41}{'ACCOUNT TOTAL':<18}  {money(dr):>12}  {money(cr):>14}")
        out.append(f"{'':41}{'ENDING BALANCE':<18}  {money(begin + dr - cr, trailing_minus=True):>12}")
        out.append("")
    write("GLDET01.txt", out)


# ---------------------------------------------------------------------------------------
# APCHK01: check register printed in two layouts: summary (one line a check) and detail
# (each check followed by the invoices it pays). One RDF describes both.
CHECKS = [
    ("020455", "10/03/26", "V0311", "NORTHWIND PAPER CO", [("88812", "09/28/26", 1240.16)]),
    ("020461", "10/09/26", "V0102", "PINE STATE UTILITIES", [("4471-0926", "09/30/26", 2310.44)]),
    ("020462", "10/09/26", "V0450", "CASCO FREIGHT LINES", [("F-10021", "09/22/26", 880.00),
                                                           ("F-10034", "09/29/26", 1125.50)]),
    ("020470", "10/16/26", "V0311", "NORTHWIND PAPER CO", [("88990", "10/05/26", 417.85)]),
]


def check_register(detail):
    kind = "DETAIL" if detail else "SUMMARY"
    out = [f"APCHK01   CHECK REGISTER - {kind:<10}   BANK 01 OPERATING      10/31/26",
           "", "CHECK   DATE      VENDOR  NAME                              AMOUNT",
           "------  --------  ------  ------------------------------  ------------"]
    total = 0.0
    for no, date, vid, vname, invoices in CHECKS:
        amt = sum(a for _, _, a in invoices)
        total += amt
        out.append(f"{no}  {date}  {vid:<6}  {vname:<30}  {money(amt):>12}")
        if detail:
            for inv, idate, iamt in invoices:
                out.append(f"{'':10}INV {inv:<10}  {idate}  {money(iamt):>12}")
    out.append(f"{'':36}{'CHECK TOTAL':<20}  {money(total):>12}")
    write("APCHK01D.txt" if detail else "APCHK01.txt", out)


# ---------------------------------------------------------------------------------------
# ARCRN01: a credit note register in euros from a European subsidiary, in UTF-8: names with
# letters past ASCII, the euro sign in the headings, credits with an en dash for a minus (as
# typeset reports print it). Printed to PDF with its title line in a larger type.
CREDIT_NOTES = [
    ("CN4471", "03.10.26", "Müller Bürobedarf KG", "Returned goods", -125.40),
    ("CN4472", "09.10.26", "Société d’Achat SARL", "Price difference", -48.00),
    ("CN4475", "17.10.26", "Ørsted Værktøj ApS", "Rebate Q3", -1250.00),
    ("CN4480", "28.10.26", "Łódź Papier Sp. z o.o.", "Correction", 12.60),
]


def euro(v):
    s = f"{abs(v):,.2f}"
    return ("\u2013" + s) if v < 0 else s


def credit_note_register():
    out = [f"{'NORTHGATE DISTRIBUTION GMBH':<36}{'CREDIT NOTE REGISTER':<36}PAGE 1",
           f"{'ARCRN01':<36}{'PERIOD ENDING 31.10.26':<36}CURRENCY €",
           "",
           "  CREDIT    DATE      CUSTOMER                  REASON                  AMOUNT €",
           "  " + "-" * 78]
    total = 0.0
    for no, date, name, reason, amount in CREDIT_NOTES:
        total += amount
        out.append(f"  {no:<8}  {date}  {name:<24}  {reason:<18}  {euro(amount):>12}")
    out.append(f"{'':48}{'TOTAL CREDITS €':<18}  {euro(total):>12}")
    write("ARCRN01.txt", out, "utf-8")


if __name__ == "__main__":
    invoice_register()
    aged_trial_balance()
    gl_detail()
    check_register(False)
    check_register(True)
    credit_note_register()
