// Edits as people and programs make them, drawn from a seed.
#include <algorithm>
#include <random>

#include "tests/pellor/MergeTriples.h"

namespace pellor::merging {
namespace {

class Dice {
 public:
  explicit Dice(std::uint64_t seed) : _random(seed * 0x9E3779B97F4A7C15U + 1) {}
  std::size_t below(std::size_t count) { return count == 0 ? 0 : static_cast<std::size_t>(_random() % count); }
  std::size_t from(std::size_t first, std::size_t last) { return first + below(last - first + 1); }
  bool chance(std::size_t percent) { return below(100) < percent; }
  template <class Elements>
  const auto& of(const Elements& elements) {
    return elements[below(elements.size())];
  }

 private:
  std::mt19937_64 _random;
};

void put(Dictionary& form, std::string_view key, Value value) {
  form.insert_or_assign(std::string(key), std::move(value));
}

// A person; some without GUID, without a number of their own, without a name.
Friend makeFriend(Tag tag, Dice& dice) {
  Friend person{tag, {}};
  const std::string number = std::to_string(tag);
  put(person.form, PLPersonRecordIDKey, tag);
  if (dice.chance(65)) put(person.form, PLPersonRecordGUIDKey, "G" + number);
  if (dice.chance(92)) put(person.form, PLPersonNameKey, "N" + number);
  Array destinations;
  if (dice.chance(80)) destinations.emplace_back("5" + number);
  if (dice.chance(50)) destinations.emplace_back(std::to_string(dice.from(1, 3)));  // of a family
  if (dice.chance(90)) put(person.form, PLPersonAllValuesKey, destinations);
  if (dice.chance(90)) put(person.form, PLPersonMonogramKey, "M" + number);
  if (dice.chance(20)) put(person.form, PLPersonReplyAsKey, "r0");
  if (dice.chance(30)) put(person.form, PLPersonMetadataKey, Value(Dictionary{{"k0", "0"}, {"k1", "0"}}));
  if (dice.chance(10)) put(person.form, "Unknown", "0");
  return person;
}

class Editor {
 public:
  Editor(Triple& triple, Side& side, Dice& dice, std::string name, Tag firstTag)
      : _triple(triple),
        _side(side),
        _dice(dice),
        _name(std::move(name)),
        _nextTag(firstTag),
        _nextInserted(-firstTag) {}

  void edit(bool isOurs) {
    const std::size_t kind = _dice.below(isOurs ? 19 : 17);
    if (kind < 3) return addOne();
    if (kind < 5) return remove();
    if (kind < 8) return move();
    if (kind == 8) return swap();
    if (kind == 9) return assign();
    if (kind == 10) return title();
    if (kind == 11) return purge();
    if (kind < 14) return choose();
    if (kind == 14) return refresh();
    if (kind == 15) return takeAllMetadataAway();
    if (kind == 16) return _dice.chance(20) ? insertPage() : addOne();
    return kind == 17 ? removeAutomatically() : putAgain();
  }

  // A friend of whom the other side may add another form.
  void add(const Friend& person) {
    const auto place = freePlace();
    if (!place) return;
    put(*place, person);
    _side.added.insert(person.tag);
    appendTrailingPage();
  }

 private:
  std::size_t groupCount() const { return std::min(_side.pages.size(), _triple.maxGroupCount); }

  std::optional<Friend>& slot(Place place) {
    const auto page = std::ranges::find(_side.pages, place.page, &Page::name);
    return page->places[place.position];
  }
  void put(Place place, Friend person) { slot(place) = std::move(person); }

  std::optional<Place> freePlace() {
    if (groupCount() == 0) return std::nullopt;
    const std::size_t start = _dice.chance(50) ? 0 : _dice.below(groupCount());
    for (std::size_t count = 0; count < groupCount(); ++count) {
      const Page& page = _side.pages[(start + count) % groupCount()];
      for (std::size_t position = 0; position < page.places.size(); ++position) {
        if (!page.places[position]) return Place{page.name, position};
      }
    }
    return std::nullopt;
  }

  // A friend in a group.
  std::optional<Tag> someone() {
    std::vector<Tag> tags;
    for (std::size_t page = 0; page < groupCount(); ++page) {
      for (const auto& each : _side.pages[page].places) {
        if (each) tags.push_back(each->tag);
      }
    }
    return tags.empty() ? std::nullopt : std::optional(_dice.of(tags));
  }

  void addOne() { add(makeFriend(_nextTag++, _dice)); }

  void takeOut(Tag tag) {
    const Place place = *_side.placeOf(tag);
    slot(place).reset();
    const auto page = std::ranges::find(_side.pages, place.page, &Page::name);
    if (page->isEmpty() && _triple.maxGroupCount >= 2) _side.pages.erase(page);
  }

  void forget(Tag tag) {
    if (_side.added.erase(tag) == 0) _side.removed.insert(tag);
  }

  void remove() {
    const auto tag = someone();
    if (!tag) return;
    forget(*tag);
    takeOut(*tag);
  }

  void removeAutomatically() {
    const auto tag = someone();
    if (!tag || _side.added.contains(*tag)) return;
    _side.removedAutomatically.insert(*tag);
    takeOut(*tag);
  }

  void move() {
    const auto tag = someone();
    const auto place = freePlace();
    if (!tag || !place) return;
    std::optional<Friend>& from = slot(*_side.placeOf(*tag));
    put(*place, *from);
    from.reset();
    appendTrailingPage();
  }

  void swap() {
    const auto tag = someone();
    const auto other = someone();
    if (!tag || tag == other) return;
    std::swap(slot(*_side.placeOf(*tag)), slot(*_side.placeOf(*other)));
  }

  // In place of a friend, who is displaced.
  void assign() {
    const auto tag = someone();
    if (!tag) return;
    const Place place = *_side.placeOf(*tag);
    forget(*tag);
    const Friend person = makeFriend(_nextTag++, _dice);
    put(place, person);
    _side.added.insert(person.tag);
  }

  void title() {
    if (groupCount() == 0) return;
    Page& page = _side.pages[_dice.below(groupCount())];
    page.title = _dice.chance(20) ? std::string() : _name + std::to_string(_dice.below(100));
    _side.titled.insert(page.name);
  }

  void purge() {
    for (std::size_t page = groupCount(); page-- > 0;) {
      if (page + 1 < groupCount() && _side.pages[page].isEmpty()) {
        _side.pages.erase(_side.pages.begin() + static_cast<std::ptrdiff_t>(page));
      }
    }
  }

  // Fields that are a person's own.
  void choose() {
    const auto tag = someone();
    if (!tag) return;
    Dictionary& form = slot(*_side.placeOf(*tag))->form;
    const std::string value = _name + std::to_string(_dice.below(100));
    switch (_dice.below(3)) {
      case 0:
        if (_dice.chance(20)) {
          form.erase(std::string(PLPersonReplyAsKey));
        } else {
          merging::put(form, PLPersonReplyAsKey, value);
        }
        break;
      case 1:
        merging::put(form, "PreferredDestination", value);
        break;
      default:
        setMetadata(form, "k" + std::to_string(_dice.below(4)), value);
    }
  }

  void setMetadata(Dictionary& form, const std::string& key, const std::string& value) {
    const Value* metadata = valueForKey(form, PLPersonMetadataKey);
    Dictionary entries = metadata ? *metadata->dictionary() : Dictionary();
    entries.erase(key);
    if (_dice.chance(70)) entries.emplace(key, value);
    form.erase(std::string(PLPersonMetadataKey));
    if (!entries.empty()) merging::put(form, PLPersonMetadataKey, Value(entries));
  }

  void takeAllMetadataAway() {
    const auto tag = someone();
    if (!tag) return;
    slot(*_side.placeOf(*tag))->form.erase(std::string(PLPersonMetadataKey));
  }

  // A changed contact. GUID, name and numbers at once nobody could follow: of the three one is changed, on each side
  // the same one, and only where the others tell who it is.
  void refresh() {
    const auto tag = someone();
    if (!tag || _triple.alike.contains(*tag)) return;
    Dictionary& form = slot(*_side.placeOf(*tag))->form;
    const bool hasGUID = form.contains(PLPersonRecordGUIDKey);
    const Value* destinations = valueForKey(form, PLPersonAllValuesKey);
    const bool isKnownByName = form.contains(PLPersonNameKey) && destinations && !destinations->array()->empty();
    if (!hasGUID && !isKnownByName) return;
    const std::string value = _name + std::to_string(_dice.below(100));
    merging::put(form, PLPersonMonogramKey, value);
    if (*tag % 3 == 0 && hasGUID && isKnownByName) merging::put(form, PLPersonRecordGUIDKey, "G" + value);
    if (*tag % 3 == 1 && hasGUID) merging::put(form, PLPersonNameKey, "N" + value);
    if (*tag % 3 == 2 && hasGUID) merging::put(form, PLPersonAllValuesKey, Value(Array{Value("6" + value)}));
  }

  // The same object once more.
  void putAgain() {
    const auto tag = someone();
    const auto place = freePlace();
    if (!tag || !place || !_triple.base.find(*tag)) return;
    Friend again = *_side.find(*tag);
    again.tag = _nextTag++;
    _side.again.emplace(again.tag, *tag);
    _triple.alike.insert(*tag);
    _triple.alike.insert(again.tag);
    put(*place, again);
    _side.added.insert(again.tag);
  }

  void appendTrailingPage() {
    if (_side.pages.size() >= _triple.maxGroupCount || _side.pages.empty() || _side.pages.back().isEmpty()) return;
    if (_dice.chance(15)) return;
    PageName name = static_cast<PageName>(_triple.base.pages.size());
    for (const Page& page : _side.pages) name = std::max(name, page.name + 1);
    _side.pages.push_back({name, std::nullopt, std::vector<std::optional<Friend>>(_triple.groupSize)});
  }

  void insertPage() {
    if (_side.pages.size() < 2 || _side.pages.size() >= _triple.maxGroupCount) return;
    const std::size_t index = _dice.below(_side.pages.size() - 1);
    Page page{_nextInserted--, std::nullopt, std::vector<std::optional<Friend>>(_triple.groupSize)};
    page.places[0] = makeFriend(_nextTag++, _dice);
    _side.added.insert(page.places[0]->tag);
    _side.pages.insert(_side.pages.begin() + static_cast<std::ptrdiff_t>(index), std::move(page));
  }

  Triple& _triple;
  Side& _side;
  Dice& _dice;
  const std::string _name;
  Tag _nextTag;
  PageName _nextInserted;
};

// Pages behind the last one of base follow one another, whatever they were called when they were appended.
void nameAppendedPages(const Triple& triple, Side& side) {
  const auto pageCount = static_cast<PageName>(triple.base.pages.size());
  const auto isOfBase = [&](const Page& page) { return page.name >= 0 && page.name < pageCount; };
  auto page = std::find_if(side.pages.rbegin(), side.pages.rend(), isOfBase).base();
  std::set<PageName> titled;
  for (auto other = side.pages.begin(); other != page; ++other) {
    if (side.titled.contains(other->name)) titled.insert(other->name);
  }
  for (PageName name = pageCount; page != side.pages.end(); ++page, ++name) {
    if (side.titled.contains(page->name)) titled.insert(name);
    page->name = name;
  }
  side.titled = std::move(titled);
}

void makeBase(Triple& triple, Dice& dice) {
  triple.groupSize = dice.from(1, 4);
  const bool isLong = dice.chance(10);
  const std::size_t pageCount = isLong ? dice.from(12, 30) : dice.from(1, 6);
  const std::size_t fill = dice.from(20, 100);
  Tag tag = 1;
  for (std::size_t index = 0; index < pageCount; ++index) {
    Page page{static_cast<PageName>(index), std::nullopt, std::vector<std::optional<Friend>>(triple.groupSize)};
    if (dice.chance(40)) page.title = "T" + std::to_string(dice.below(2 * pageCount));
    for (auto& place : page.places) {
      if (dice.chance(fill)) place = makeFriend(tag++, dice);
    }
    triple.base.pages.push_back(std::move(page));
  }
  triple.maxGroupCount = dice.chance(8)    ? 1
                         : dice.chance(30) ? pageCount
                         : dice.chance(8)  ? dice.from(1, pageCount)
                                           : pageCount + dice.from(0, 4);
  if (tag > 2 && dice.chance(15)) {
    // One person twice.
    const Friend first = *triple.base.find(1);
    for (Page& page : triple.base.pages) {
      for (auto& place : page.places) {
        if (!place || place->tag != tag - 1) continue;
        place->form = first.form;
        triple.alike.insert({1, tag - 1});
      }
    }
  }
}

}  // namespace

Triple makeTriple(std::uint64_t seed) {
  Dice dice(seed);
  Triple triple;
  makeBase(triple, dice);
  triple.theirs = triple.ours = triple.base;
  Editor theirs(triple, triple.theirs, dice, "t", 1000);
  Editor ours(triple, triple.ours, dice, "o", 2000);
  const std::size_t most = dice.chance(50) ? 2 : 8;
  for (std::size_t count = dice.from(0, most); count > 0; --count) theirs.edit(false);
  for (std::size_t count = dice.from(0, most); count > 0; --count) ours.edit(true);
  if (dice.chance(20)) {
    const Friend both = makeFriend(3000, dice);
    Friend ofOurs = both;
    if (dice.chance(50)) put(ofOurs.form, PLPersonReplyAsKey, "both");
    if (both.form.contains(PLPersonRecordGUIDKey) && dice.chance(20)) put(ofOurs.form, PLPersonNameKey, "both");
    theirs.add(both);
    ours.add(ofOurs);
  }
  nameAppendedPages(triple, triple.theirs);
  nameAppendedPages(triple, triple.ours);
  return triple;
}

}  // namespace pellor::merging
