// Writes a large, realistic invoice register for the conversion benchmark: form-fed pages
// of 60 lines, customer headers, one- and two-line invoice records, customer and region
// totals, 132 columns at the widest. The same seed always gives the same file.
//
//   qb_gen_report BYTES FILE

#include <cinttypes>
#include <cstdio>
#include <cstdlib>
#include <string>

namespace {

class Random {  // a fixed LCG, so every machine writes the same report
 public:
  uint32_t Next() {
    state_ = state_ * 6364136223846793005ULL + 1442695040888963407ULL;
    return static_cast<uint32_t>(state_ >> 33);
  }
  uint32_t Below(uint32_t n) { return Next() % n; }

 private:
  uint64_t state_ = 20261122;
};

const char* kNames[] = {
    "HARBORVIEW MARINE SUPPLY", "BIRCH & STONE LANDSCAPING", "QUARRY LANE BAKERY",
    "TIDEWATER EAST CLINIC",    "ALDER CREEK HARDWARE",      "BLUE FIR CONSTRUCTION",
    "CASCO BAY OUTFITTERS",     "DEERING OAKS DENTAL",       "FORE RIVER MACHINE WORKS",
    "GREAT DIAMOND ISLAND INN", "NORTH DEERING FARMS, INC",  "PINE POINT CANNERY"};
const char* kStreets[] = {"455 HARBOR ROAD", "RT 9 YARD", "12 DOCK ST",
                          "88 FORE ST",      "1 MAIN ST", "700 RIVERSIDE IND PKWY"};
const char* kTowns[] = {"PORTLAND ME", "GORHAM ME", "SACO ME", "BATH ME", "BRUNSWICK ME"};
const char* kTerms[] = {"NET 30", "NET 45", "2% 10 NET", "COD", "NET 60"};
const char* kVia[] = {"UPS GROUND", "OUR TRUCK", "CUSTOMER PICKUP", "LTL FREIGHT"};

std::string Money(int64_t cents, bool parens) {
  char digits[32];
  int64_t a = cents < 0 ? -cents : cents;
  std::snprintf(digits, sizeof digits, "%" PRId64, a / 100);
  std::string whole = digits, grouped;
  for (size_t i = 0; i < whole.size(); ++i) {
    if (i > 0 && (whole.size() - i) % 3 == 0) grouped += ',';
    grouped += whole[i];
  }
  std::snprintf(digits, sizeof digits, ".%02" PRId64, a % 100);
  grouped += digits;
  if (cents < 0) return parens ? "(" + grouped + ")" : grouped + "CR";
  return grouped;
}

class Writer {
 public:
  Writer(FILE* out, uint64_t target) : out_(out), target_(target) {}
  bool Full() const { return written_ >= target_; }

  void Line(const std::string& text) {
    if (lineOnPage_ == 0 || lineOnPage_ >= 60) Header();
    Put(text);
    ++lineOnPage_;
  }
  void Put(const std::string& text) {
    std::fputs(text.c_str(), out_);
    std::fputs("\r\n", out_);
    written_ += text.size() + 2;
  }
  bool AtPageTop() const { return lineOnPage_ == 5; }

 private:
  void Header() {
    char line[200];
    const bool first = page_++ == 0;
    std::snprintf(line, sizeof line, "%s%-40s%-80sPAGE %7d", first ? "" : "\f",
                  "NORTHGATE DISTRIBUTION INC.", "INVOICE REGISTER - ALL REGIONS", page_);
    Put(line);
    Put("ARINV01   PERIOD ENDING 10/31/26                                               RUN DATE "
        "11/02/26");
    Put("");
    Put("  INVOICE   DATE      CUSTOMER PO   TERMS      REP   WHSE     QTY        AMOUNT         "
        "TAX     "
        "FREIGHT          TOTAL");
    Put("  " + std::string(118, '-'));
    lineOnPage_ = 5;
  }

  FILE* out_;
  uint64_t target_;
  uint64_t written_ = 0;
  int page_ = 0;
  int lineOnPage_ = 0;
};

}  // namespace

int main(int argc, char** argv) {
  if (argc != 3) {
    std::fprintf(stderr, "usage: qb_gen_report BYTES FILE\n");
    return 2;
  }
  const uint64_t target = std::strtoull(argv[1], nullptr, 10);
  FILE* out = std::fopen(argv[2], "wb");
  if (!out) {
    std::perror(argv[2]);
    return 1;
  }
  static char buffer[1 << 20];
  std::setvbuf(out, buffer, _IOFBF, sizeof buffer);

  Random rnd;
  Writer w(out, target);
  char line[256];
  int64_t region[4] = {0, 0, 0, 0};
  int customers = 0;
  uint32_t invoices = 0;  // invoice numbers stay six digits: 100000 to 999999, then again
  while (!w.Full()) {
    const std::string cid = "C" + std::to_string(100000 + rnd.Below(900000));
    const char* name = kNames[rnd.Below(12)];
    std::snprintf(line, sizeof line, "CUSTOMER  %-7s  %-30s  PHONE 207-555-%04u  TERRITORY %02u",
                  cid.c_str(), name, rnd.Below(10000), rnd.Below(40));
    const std::string header = line;
    w.Line(header);
    int64_t tot[4] = {0, 0, 0, 0};
    const uint32_t count = 1 + rnd.Below(8);
    for (uint32_t i = 0; i < count; ++i) {
      if (w.AtPageTop()) w.Line(header.substr(0, 50) + "(CONTINUED)");
      const bool credit = rnd.Below(12) == 0;
      int64_t amount = 100 + rnd.Below(2500000);
      if (credit) amount = -amount;
      const int64_t tax = amount * 7 / 100;
      const int64_t freight = credit ? 0 : rnd.Below(20000);
      const int64_t total = amount + tax + freight;
      std::snprintf(
          line, sizeof line,
          "  %s%06u  %02u/%02u/26  PO-%06u    %-10s SR%02u  W%02u   %6u  %12s  %10s  %10s  %13s",
          credit ? "CM" : "IN", 100000 + invoices++ % 900000, 1 + rnd.Below(12), 1 + rnd.Below(28),
          rnd.Below(1000000), kTerms[rnd.Below(5)], rnd.Below(30), rnd.Below(9),
          1 + rnd.Below(5000), Money(amount, true).c_str(), Money(tax, true).c_str(),
          Money(freight, true).c_str(), Money(total, true).c_str());
      w.Line(line);
      if (rnd.Below(10) < 4) {
        std::snprintf(line, sizeof line, "            SHIP TO: %-40s VIA: %s",
                      (std::string(kStreets[rnd.Below(6)]) + ", " + kTowns[rnd.Below(5)]).c_str(),
                      kVia[rnd.Below(4)]);
        w.Line(line);
      }
      const int64_t parts[4] = {amount, tax, freight, total};
      for (int k = 0; k < 4; ++k) tot[k] += parts[k];
    }
    std::snprintf(line, sizeof line, "%20s%-46s%12s  %10s  %10s  %13s", "", "CUSTOMER TOTAL",
                  Money(tot[0], false).c_str(), Money(tot[1], false).c_str(),
                  Money(tot[2], false).c_str(), Money(tot[3], false).c_str());
    w.Line(line);
    w.Line("");
    for (int k = 0; k < 4; ++k) region[k] += tot[k];
    if (++customers % 50 == 0) {
      std::snprintf(line, sizeof line, "%20s%-46s%12s  %10s  %10s  %13s", "", "REGION TOTAL",
                    Money(region[0], false).c_str(), Money(region[1], false).c_str(),
                    Money(region[2], false).c_str(), Money(region[3], false).c_str());
      w.Line(line);
      w.Line("");
      for (int64_t& r : region) r = 0;
    }
  }
  w.Line(std::string(50, ' ') + "*** END OF REPORT ***");
  if (std::fclose(out) != 0) {
    std::perror(argv[2]);
    return 1;
  }
  return 0;
}
