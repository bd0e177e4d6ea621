#pragma once
// Errors of the engine and its support code.
//
// Each error carries the number and source that the user sees in a message box and in the
// run log ("Error: 519" from "LoadRDFHeader"), and, where it applies, the file and line that
// caused it. Procedures throw QbError inside; their boundaries catch it, log it through
// LogError and return failure, so callers see a bool plus the last error.

#include <cstdint>
#include <filesystem>
#include <stdexcept>
#include <string>
#include <string_view>

namespace qb {

// Every error number the system raises, in one place. The run-time numbers are kept as the
// original runtime numbered them, and the system's own (513 to 521) as its users know them,
// so that logs and scripts read the same.
enum ErrorNumber : int32_t {
  // The runtime's errors; RuntimeErrorText gives their texts.
  kInvalidCall = 5,      // "Invalid procedure call or argument"
  kOverflow = 6,         // "Overflow": a number outside its type's range
  kOutOfMemory = 7,      // "Out of memory"
  kSubscript = 9,        // "Subscript out of range"
  kTypeMismatch = 13,    // "Type mismatch": text where a number was expected
  kUserInterrupt = 18,   // "User interrupt occurred": the user cancelled a step
  kInternalError = 51,   // "Internal error": a failure the system cannot name better
  kFileNotFound = 53,    // "File not found"
  kDeviceIO = 57,        // "Device I/O error"
  kDiskFull = 61,        // "Disk full"
  kPathFileAccess = 75,  // "Path/File access error"
  kPathNotFound = 76,    // "Path not found"
  kNoAutomation = 429,   // "ActiveX component can't create object": no spreadsheet program
  kDuplicateKey = 457,   // "This key is already associated with an element of this collection"
  kAppDefined = 1004,    // "Application-defined or object-defined error" (the sheet is full)
  // The record sets' errors.
  kBadArguments = 3001,     // "Arguments are of the wrong type, are out of acceptable range, ..."
  kNoCurrentRecord = 3021,  // "Either BOF or EOF is True, or the current record has been deleted"
  kItemNotFound = 3265,     // "Item cannot be found in the collection ..."
  // The system's own errors, with the texts it shows.
  kAutofindMissing = 513,   // "Autofind Settings File Does not Exist ": qbsys.txt is missing
  kPdfScan = 514,           // "Scanning PDF File ": the PDF cannot be read
  kRdfNotForPdf = 515,      // "The selected RDF is for a Text report not a PDF report."
  kRdfNotForText = 516,     // "The selected RDF is for a PDF report not a Text report."
  kRdfCorruptFirst = 517,   // "Corrupted RDF": the first line's checksum
  kRdfCorruptHeader = 518,  // "Corrupted RDF": the first line's fields
  kRdfCorruptLine = 519,    // "Corrupted RDF": a later line's checksum
  kMatchError = 521,        // "Match Error.": a pasted block did not land as sent
};

// The texts of the system's own errors.
inline constexpr std::string_view kAutofindMissingText = "Autofind Settings File Does not Exist ";
inline constexpr std::string_view kPdfScanText = "Scanning PDF File ";
inline constexpr std::string_view kRdfNotForPdfText =
    "The selected RDF is for a Text report not a PDF report.";
inline constexpr std::string_view kRdfNotForTextText =
    "The selected RDF is for a PDF report not a Text report.";
inline constexpr std::string_view kCorruptRdfText = "Corrupted RDF";
inline constexpr std::string_view kMatchErrorText = "Match Error.";

// The runtime's own description of a run-time error number.
std::string_view RuntimeErrorText(int32_t number);

class QbError : public std::runtime_error {
 public:
  QbError(int32_t number, std::string source, std::string description)
      : std::runtime_error(description),
        number_(number),
        source_(std::move(source)),
        description_(std::move(description)) {}

  // A run-time error with the runtime's own description.
  static QbError Runtime(int32_t number, std::string source) {
    return QbError(number, std::move(source), std::string(RuntimeErrorText(number)));
  }

  int32_t number() const { return number_; }
  const std::string& source() const { return source_; }
  const std::string& description() const { return description_; }

  // Where the error applies: a file and, when known, a 1-based line of it.
  const std::filesystem::path& file() const { return file_; }
  int64_t line() const { return line_; }
  QbError& at(std::filesystem::path file, int64_t line = 0) {
    file_ = std::move(file);
    line_ = line;
    return *this;
  }
  // What is wrong at that place, in words for the user ("DLC line has 6 columns; 8 are
  // needed: ..."): shown and logged on a line of its own after the number and description,
  // which stay as they are for the scripts that read them.
  const std::string& detail() const { return detail_; }
  QbError& because(std::string detail) {
    detail_ = std::move(detail);
    return *this;
  }
  // "bad.rdf:23: DLC line has ..." (the form editors jump to), or "" without a detail.
  std::string Place() const;

  QbError& withSource(std::string source) {
    source_ = std::move(source);
    return *this;
  }

  // "Error 519 in LoadRDFHeader: Corrupted RDF (x.rdf, line 12)" for lines on standard error;
  // with a detail, the place and the detail follow on a second line instead.
  std::string describe() const;

 private:
  int32_t number_;
  std::string source_;
  std::string description_;
  std::filesystem::path file_;
  int64_t line_ = 0;
  std::string detail_;
};

// The run-time error for a failed system call (errno): path not found, access, disk full.
QbError ErrorFromErrno(int err, std::string source);

// Numbers as the RDF, the systems list and the settings hold them: optional blanks, an
// optional sign and decimal digits. Anything else is error 13, a value outside the type's
// range error 6; `source` names the procedure for the error.
int16_t ParseInt16(std::string_view text, std::string_view source);
int32_t ParseInt32(std::string_view text, std::string_view source);

}  // namespace qb
