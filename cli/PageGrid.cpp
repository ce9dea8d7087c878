#include "cli/PageGrid.h"

#include <algorithm>
#include <utility>
#include <vector>

#include "cli/FriendSearch.h"
#include "cli/Output.h"
#include "pellor/linux/text/IcuText.h"

namespace pellor::cli {
namespace {

constexpr std::size_t NarrowestMonogram = 2;
constexpr std::size_t NarrowestText = 10;
constexpr std::size_t AmpleText = 17;  // gives three columns on a terminal of 80
constexpr std::size_t Gap = 2;

struct Cell {
  std::string number;
  std::string mark;
  std::string monogram;
  std::string name;
  std::string destination;
  std::string note;
};

/// In columns.
struct Widths {
  std::size_t number = 0;
  std::size_t monogram = 0;
  std::size_t text = 0;

  std::size_t prefix() const { return number + 1 + 1 + 1 + monogram + 1; }
  std::size_t cell() const { return prefix() + text; }
};

Cell cellOf(const Page& page, std::size_t slot, const FriendMark& mark, const FriendNote& note) {
  Cell cell{std::to_string(slot + 1), " ", {}, "(empty)", {}, {}};
  const auto& person = page.friends[slot];
  if (!person) return cell;
  cell.mark = mark(*person);
  cell.monogram = printable(person->monogram);
  cell.name = nameOf(*person);
  if (!person->name.empty()) cell.destination = shownDestination(*person);
  cell.note = note(*person);
  return cell;
}

std::vector<Cell> cellsOf(const Page& page, const FriendMark& mark, const FriendNote& note) {
  std::vector<Cell> cells;
  for (std::size_t slot = 0; slot < page.friends.size(); ++slot) cells.push_back(cellOf(page, slot, mark, note));
  return cells;
}

void widen(Widths& widths, const Cell& cell) {
  widths.number = std::max(widths.number, cell.number.size());
  widths.monogram = std::max(widths.monogram, displayWidth(cell.monogram));
  widths.text =
      std::max({widths.text, displayWidth(cell.name), displayWidth(cell.destination), displayWidth(cell.note)});
}

std::size_t quotientUp(std::size_t number, std::size_t divisor) { return (number + divisor - 1) / divisor; }

// As many columns as leave each text ample room, but no more than save a row of `cells`; what is over goes to the texts
// that need it.
std::size_t columnsIn(std::size_t width, std::size_t cells, Widths& widths) {
  const std::size_t needed = widths.text;
  widths.text = std::min(needed, AmpleText);
  const std::size_t rows = quotientUp(cells, std::max<std::size_t>(1, (width + Gap) / (widths.cell() + Gap)));
  const std::size_t columns = quotientUp(cells, rows);
  const std::size_t room = (width + Gap) / columns - Gap;
  widths.text = room > widths.prefix() ? std::min(needed, room - widths.prefix()) : 1;
  return columns;
}

std::string firstLine(const Cell& cell, const Widths& widths) {
  return std::string(widths.number - cell.number.size(), ' ') + cell.number + " " + cell.mark + " " +
         fitted(cell.monogram, widths.monogram) + " " + fitted(cell.name, widths.text);
}

std::string lowerLine(const std::string& text, const Widths& widths) {
  return std::string(widths.prefix(), ' ') + fitted(text, widths.text);
}

std::string withoutTrailingSpaces(std::string line) {
  line.erase(line.find_last_not_of(' ') + 1);
  return line;
}

// Without its line end where there is nothing to be seen in it.
std::string lineUnlessEmpty(std::string line) {
  line = withoutTrailingSpaces(std::move(line));
  return line.empty() ? line : line + "\n";
}

std::string rowText(const std::vector<Cell>& cells, std::size_t begin, std::size_t end, const Widths& widths) {
  std::string first;
  std::string second;
  std::string third;
  for (std::size_t index = begin; index < end; ++index) {
    const std::string gap(index == begin ? 0 : Gap, ' ');
    first += gap + firstLine(cells[index], widths);
    second += gap + lowerLine(cells[index].destination, widths);
    third += gap + lowerLine(cells[index].note, widths);
  }
  return withoutTrailingSpaces(first) + "\n" + lineUnlessEmpty(second) + lineUnlessEmpty(third);
}

std::string gridText(const std::vector<Cell>& cells, std::size_t columns, const Widths& widths) {
  std::string text;
  for (std::size_t begin = 0; begin < cells.size(); begin += columns) {
    text += rowText(cells, begin, std::min(begin + columns, cells.size()), widths);
  }
  return text;
}

}  // namespace

std::string pageHeading(const Page& page, std::uint64_t pageIndex) {
  const std::string title = printable(page.title);
  return "Page " + std::to_string(pageIndex + 1) + (title.empty() ? "" : ": " + title) + "\n";
}

std::string pagesText(const Snapshot& list, const FriendMark& mark, std::size_t width, const FriendNote& note) {
  std::vector<std::vector<Cell>> grids;
  std::size_t cells = 1;
  Widths widths{0, NarrowestMonogram, NarrowestText};
  for (std::size_t index = 0; index < list.pageCount(); ++index) {
    grids.push_back(cellsOf(list.page(index), mark, note));
    cells = std::max(cells, grids.back().size());
    for (const Cell& cell : grids.back()) widen(widths, cell);
  }
  const std::size_t columns = columnsIn(width, cells, widths);
  std::string text;
  for (std::size_t index = 0; index < list.pageCount(); ++index) {
    text += (index == 0 ? "" : "\n") + pageHeading(list.page(index), index) + gridText(grids[index], columns, widths);
  }
  return text;
}

}  // namespace pellor::cli
