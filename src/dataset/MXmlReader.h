// Converts a dataset in the XML format into an in-memory database with the
// dataset schema, in one streaming pass.
#pragma once

#include <atomic>
#include <memory>
#include <string>

#include "base/MDatabase.h"

namespace quorvel {

// A failure of the format; the reader adds the position.
class TXmlException : public TFlowError {
 public:
  using TFlowError::TFlowError;
};

class TXmlReader {
 public:
  explicit TXmlReader(std::string filename) : m_Filename(std::move(filename)) {}

  // Gives a TDatabase on ":memory:". Failures are plain exceptions: format
  // errors as "%s (line %i, column %i)", malformed XML with the parser's
  // text.
  std::shared_ptr<TDatabase> convertToDatabase();
  // Converts XML text held in memory, as from a file.
  std::shared_ptr<TDatabase> convertText(const std::string& text);

  // Makes the running conversion fail with "Aborted by the user" at the
  // next start of an element; without a running conversion, nothing.
  void stopParsing();
  // True while a conversion runs.
  bool isRunning() const { return m_Running.load() != nullptr; }

  // The statements that make a dataset database, as the converter runs them.
  static void createDatasetTables(TDatabase& db);

 private:
  struct Handler;
  std::shared_ptr<TDatabase> convert(const std::function<bool(Handler&)>& feed);

  std::string m_Filename;
  std::atomic<Handler*> m_Running{nullptr};
};

}  // namespace quorvel
