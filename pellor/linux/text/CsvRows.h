// Tables as spreadsheets and address books write them: comma-separated values.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace pellor {

struct CsvRow {
  std::size_t line = 0;  ///< where it begins, from 1 on
  std::vector<std::string> fields;
  bool isCut = false;  ///< whether the text ends inside quotation marks that were opened in this row
};

/// Reads the rows of a table one after another. Between fields is a comma, a semicolon or a tabulator: the one that the
/// first row has most of, outside of quotation marks. A field in quotation marks may hold all of these, ends of lines,
/// and quotation marks written twice. A row ends with a line feed, a carriage return or both; lines without anything
/// are no rows.
class CsvRows {
 public:
  /// The text has to outlive the object.
  explicit CsvRows(std::string_view text);

  /// The next row; absent at the end.
  std::optional<CsvRow> next();

 private:
  bool isAtEnd() const { return _at >= _text.size(); }
  char here() const { return _text[_at]; }
  void passEndOfLine();
  std::string quotedField(CsvRow& row);
  std::string field(CsvRow& row);

  const std::string_view _text;
  char _separator = ',';
  std::size_t _at = 0;
  std::size_t _line = 1;
};

}  // namespace pellor
