#pragma once
// Checks an RDF without a report: every part of it, every line, with the mistakes that
// loading stops at (the first of them) and those that loading accepts but a run then
// trips on or quietly ignores: a pickup for a record no marker names, a marker row that
// can never match, a sequence that never comes, a field that is never filled.
//
// The file is read as loading reads it (plain or scrambled, comments skipped, lines
// trimmed, columns split at every comma), and the columns are those of rdf_sections.h, so
// a line the checker passes loads, and a line it reports as an error fails to load with
// the same words in the error's detail.

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

namespace qb {

struct RdfDiagnostic {
  enum class Severity { Error, Warning };
  std::filesystem::path file;
  int64_t line = 0;  // the physical line in the file, from 1; 0: the whole file
  Severity severity = Severity::Error;
  std::string message;  // a sentence for the user, without a final period
};

struct RdfCheckResult {
  std::filesystem::path file;              // the RDF checked
  std::vector<RdfDiagnostic> diagnostics;  // in file order; the whole file's first
  int errors = 0;
  int warnings = 0;
};

// Never throws for what the file holds; a file that cannot be read is one error.
RdfCheckResult CheckRdf(const std::filesystem::path& rdf);

// "FILE:LINE: error: MESSAGE", "FILE:LINE: warning: MESSAGE", or "FILE: error: MESSAGE" for
// the whole file: the form editors and build tools jump to.
std::string FormatDiagnostic(const RdfDiagnostic& diagnostic);

// One line: "ARINV01.rdf: 2 errors, 1 warning", from the result's counts.
std::string CheckSummary(const RdfCheckResult& result);

}  // namespace qb
