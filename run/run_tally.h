#pragma once
// A run's figures as the RDF checker reports them: how many pieces each marker row matched,
// which line beginnings matched none, which written fields stayed empty in every row.

#include <cstdint>
#include <string>
#include <unordered_map>
#include <vector>

#include "engine/converter.h"
#include "engine/run_observer.h"

namespace qb {

class RunTally final : public RunObserver {
 public:
  // `tables` gives the marker rows, in the order the run tests them.
  explicit RunTally(RdfTables& tables);

  void Piece(int64_t line, int piece, std::string_view text) override;
  void Marker(const MarkerRow* row) override;
  void Row(int32_t number, std::span<const ValueBuffer* const> values) override;

  // The figures in lines for the user; warnings in the form "RDF:LINE: warning: ...".
  // `columns` are the run's output columns (Converter::ColumnFields).
  struct Summary {
    std::vector<std::string> lines;
    int warnings = 0;
  };
  Summary Report(const std::string& report, const std::string& rdf,
                 const std::vector<Converter::ColumnField>& columns) const;

  int64_t Pieces() const { return pieces_; }
  int64_t Matched(size_t marker) const { return matches_[marker]; }

 private:
  static constexpr size_t kBeginning = 20;           // characters of an unmatched piece compared
  static constexpr size_t kKeptBeginnings = 100000;  // distinct beginnings counted

  struct MarkerText {
    int64_t rdfLine;
    std::string shown;  // "p 3,16 "xxxxxx  nn/nn/nn" -> INV"
  };
  std::vector<MarkerText> markers_;
  std::vector<int64_t> matches_;
  int64_t pieces_ = 0, unmatched_ = 0, blankUnmatched_ = 0, otherUnmatched_ = 0;
  std::string_view piece_;  // the current piece, until Marker
  std::string beginning_;
  std::unordered_map<std::string, int64_t> beginnings_;
  int64_t rows_ = 0;
  std::vector<bool> filled_;  // per column: some written row had a value
};

}  // namespace qb
