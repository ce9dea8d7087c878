#include "tests/pellor/MergeTriples.h"

#include <algorithm>

namespace pellor::merging {

bool Page::isEmpty() const {
  return std::ranges::none_of(places, [](const auto& place) { return place.has_value(); });
}

const Page* Side::page(PageName name) const {
  const auto found = std::ranges::find(pages, name, &Page::name);
  return found == pages.end() ? nullptr : &*found;
}

std::optional<Place> Side::placeOf(Tag tag) const {
  for (const Page& page : pages) {
    for (std::size_t position = 0; position < page.places.size(); ++position) {
      if (page.places[position] && page.places[position]->tag == tag) return Place{page.name, position};
    }
  }
  return std::nullopt;
}

const Friend* Side::at(Place place) const {
  const Page* found = page(place.page);
  return found && found->places[place.position] ? &*found->places[place.position] : nullptr;
}

const Friend* Side::find(Tag tag) const {
  const auto place = placeOf(tag);
  return place ? at(*place) : nullptr;
}

std::vector<Tag> Side::tags() const {
  std::vector<Tag> tags;
  for (const Page& page : pages) {
    for (const auto& place : page.places) {
      if (place) tags.push_back(place->tag);
    }
  }
  return tags;
}

std::optional<Value> at(const Dictionary& form, std::string_view key) {
  const Value* value = valueForKey(form, key);
  return value ? std::optional(*value) : std::nullopt;
}

Dictionary metadataOf(const Dictionary& form) {
  const auto value = at(form, PLPersonMetadataKey);
  return value ? *value->dictionary() : Dictionary();
}

std::vector<std::optional<Value>> blockOf(const Dictionary& form) {
  std::vector<std::optional<Value>> block;
  for (const std::string_view key : Block) block.push_back(at(form, key));
  return block;
}

Dictionary writtenForm(const Dictionary& stored) {
  Dictionary form = stored;
  Array destinations;
  if (const Value* value = valueForKey(stored, PLPersonAllValuesKey)) destinations = *value->array();
  std::vector<std::string> texts;
  for (const Value& value : destinations) texts.push_back(*value.string());
  std::ranges::sort(texts);
  const auto repeated = std::ranges::unique(texts);
  texts.erase(repeated.begin(), repeated.end());
  form.insert_or_assign(std::string(PLPersonAllValuesKey), Value(Array(texts.begin(), texts.end())));
  form.try_emplace(std::string(PLPersonMonogramKey), Value(""));
  return form;
}

Dictionary formOf(const Friend& person) {
  Dictionary form = person.form;
  form.insert_or_assign(TagKey, Value(person.tag));
  return form;
}

namespace {

std::vector<Value> elementsOf(const Side& side, bool isWritten) {
  std::vector<Value> elements;
  for (const Page& page : side.pages) {
    for (const auto& place : page.places) {
      Dictionary form = place ? formOf(*place) : Dictionary();
      const auto again = place ? side.again.find(place->tag) : side.again.end();
      if (again != side.again.end()) form.insert_or_assign(TagKey, Value(again->second));
      elements.emplace_back(place && isWritten ? writtenForm(form) : form);
    }
  }
  return elements;
}

}  // namespace

LongArray listOf(const Side& side) { return LongArray(elementsOf(side, false)); }

LongArray copyOf(const LongArray& list) { return LongArray(list.elements()); }

namespace {

LongArray sharing(const LongArray& list, const LongArray& base) {
  std::vector<std::shared_ptr<const ArrayChunk>> chunks = list.chunks();
  for (std::size_t index = 0; index < std::min(chunks.size(), base.chunks().size()); ++index) {
    if (LongArray({chunks[index]}) == LongArray({base.chunks()[index]})) chunks[index] = base.chunks()[index];
  }
  return LongArray(chunks);
}

}  // namespace

LongArray listOf(const Side& side, const LongArray& base) { return sharing(LongArray(elementsOf(side, true)), base); }

Array titlesOf(const Side& side) {
  Array titles;
  for (const Page& page : side.pages) titles.emplace_back(page.title.value_or(""));
  return titles;
}

PLMergeInput inputOf(const Triple& triple, const Side& theirs, const Side& ours) {
  PLMergeInput input;
  input.base = listOf(triple.base);
  input.baseTitles = titlesOf(triple.base);
  input.theirs = sharing(listOf(theirs), input.base);
  input.theirTitles = titlesOf(theirs);
  input.ours = listOf(ours, input.base);
  input.groupSize = triple.groupSize;
  input.maxGroupCount = triple.maxGroupCount;
  input.ourPageCount = std::min(ours.pages.size(), triple.maxGroupCount);
  input.writtenForm = writtenForm;
  std::map<Tag, std::uint64_t> baseSlots;
  std::uint64_t slot = 0;
  for (const Page& page : triple.base.pages) {
    for (const auto& place : page.places) {
      if (place) baseSlots.emplace(place->tag, slot);
      ++slot;
    }
  }
  slot = 0;
  for (std::size_t index = 0; index < ours.pages.size(); ++index) {
    const Page& page = ours.pages[index];
    const bool isOfBase = page.name >= 0 && page.name < static_cast<PageName>(triple.base.pages.size());
    if (index < input.ourPageCount)
      input.ourPages.push_back(isOfBase ? std::optional(static_cast<std::uint64_t>(page.name)) : std::nullopt);
    if (ours.titled.contains(page.name)) input.ourTitles.emplace(index, page.title.value_or(""));
    for (const auto& place : page.places) {
      PLChunkOrigins& origins = input.ourFriends[slot / LongArray::ChunkSize];
      const auto again = place ? ours.again.find(place->tag) : ours.again.end();
      const auto found =
          place ? baseSlots.find(again == ours.again.end() ? place->tag : again->second) : baseSlots.end();
      origins.push_back(found == baseSlots.end() ? std::nullopt : std::optional(found->second));
      ++slot;
    }
  }
  for (const Tag tag : ours.removedAutomatically) input.ourAutomaticRemovals.push_back(baseSlots.at(tag));
  std::ranges::sort(input.ourAutomaticRemovals);
  return input;
}

std::string describe(const LongArray& list, std::size_t groupSize) {
  std::string text;
  for (std::size_t slot = 0; slot < list.size(); ++slot) {
    const Value element = list.at(slot);
    const Value* tag = valueForKey(*element.dictionary(), TagKey);
    text += (slot % groupSize == 0 ? "[" : " ") + (tag ? std::to_string(*tag->integer()) : "-");
    if (slot % groupSize + 1 == groupSize) text += "] ";
  }
  return text;
}

std::string Triple::description() const {
  std::string text = "at most " + std::to_string(maxGroupCount) + " pages\n";
  for (const Side* side : {&base, &theirs, &ours}) {
    text += describe(listOf(*side), groupSize) + Value(titlesOf(*side)).description() + "\n";
  }
  return text;
}

}  // namespace pellor::merging
