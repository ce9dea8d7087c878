// Pictures of contacts, from the shapes that cards have them in to the records.
#include <gtest/gtest.h>

#include "pellor/linux/contacts/internal/CardPhoto.h"
#include "tests/linux/AddressBookProgram.h"
#include "tests/linux/ContactsFixture.h"

namespace pellor {
namespace {

std::string shown(const std::optional<ContactPhoto>& photo) {
  if (!photo) return "none";
  const std::string bytes(photo->bytes.begin(), photo->bytes.end());
  return photo->type + "|" + (photo->bytes.empty() ? photo->location : "bytes " + bytes);
}

TEST(CardPhoto, IsReadAsCardsHaveIt) {
  const struct {
    const char* what;
    std::string lines;
    std::string expected;
  } rows[] = {
      {"version 2.1, folded, ended by an empty line", "PHOTO;ENCODING=BASE64;JPEG:aGVs\r\n bG8=\r\n\r\nFN:A\r\n",
       "image/jpeg|bytes hello"},
      {"version 2.1 with a type alone", "PHOTO;TYPE=GIF;BASE64:\r\n  aGVs\r\n  bG8\r\n", "image/gif|bytes hello"},
      {"version 3", "FN:A\nitem1.photo;type=png;encoding=b:aGVsbG8=\n", "image/png|bytes hello"},
      {"version 4", "PHOTO:data:image/webp;base64,aGVs\r\n bG8=\r\n", "image/webp|bytes hello"},
      {"version 4, escaped", "PHOTO;PREF=1:data:image/png\\;base64\\,aGVsbG8=\r\n", "image/png|bytes hello"},
      {"a place", "PHOTO;VALUE=uri;MEDIATYPE=image/png:https://example.org/a.png\r\n",
       "image/png|https://example.org/a.png"},
      {"a file", "PHOTO;VALUE=URI:file:///home/ann/a%20b%C3%AB.jpg\r\n", "|/home/ann/a b\xC3\xAB.jpg"},
      {"a file of this machine", "PHOTO:FILE://localhost/a%2\r\n", "|/a%2"},
      {"a parameter with a colon", "PHOTO;X=\"a:b\";ENCODING=b:aGVsbG8=\r\n", "|bytes hello"},
      {"none, then one", "PHOTO:\r\nPHOTO;ENCODING=b:aGVsbG8=\r\n", "|bytes hello"},
      {"no base64", "PHOTO;ENCODING=b:{hello}\r\n", "none"},
      {"no colon", "PHOTO;ENCODING=\"b:aGVsbG8=\r\n", "none"},
  };
  for (const auto& row : rows)
    EXPECT_EQ(shown(photoOfCard("BEGIN:VCARD\r\n" + row.lines + "END:VCARD\r\n")), row.expected) << row.what;
}

TEST(ContactPhotos, AreThoseOfTheCardsAndNotInTheIndex) {
  ContactsFixture fixture;
  const std::string large = "PHOTO;ENCODING=b;TYPE=JPEG:" + std::string(4'000'000, 'A') + "\n";
  const auto small = [](const char* letters) { return std::string("PHOTO;ENCODING=b:") + letters + "\n"; };
  fixture.put("a.vcf", fixture.card("ann", "Ann", large));
  fixture.put("many.vcf", fixture.card("bo", "Bo", small("Qm8=")) + fixture.card("", "Cy", small("Q3k=")) +
                              fixture.card("di", "Di"));
  AddressBookProgram program(fixture.log, fixture.source(), fixture.options());
  const auto photoOf = [&](const std::string& name) {
    std::string text = "nobody";
    program.with([&](AddressBook& book) {
      if (const auto people = book.copyPeopleMatchingName(name)) text = shown(people->front()->photo());
    });
    return text;
  };
  EXPECT_EQ(photoOf("Ann").size(), std::string("image/jpeg|bytes ").size() + 3'000'000);
  EXPECT_EQ(photoOf("Bo"), "|bytes Bo");
  EXPECT_EQ(photoOf("Cy"), "|bytes Cy");
  EXPECT_EQ(photoOf("Di"), "none");
  for (const auto& file : std::filesystem::directory_iterator(fixture.data))
    EXPECT_LT(file.file_size(), 1'000'000U) << file.path();
  // Another picture is a change of the contact, which stays who it is.
  std::string guid;
  program.with([&](AddressBook& book) { guid = book.copyPeopleMatchingName("Cy")->front()->recordGUID(); });
  fixture.put("many.vcf", fixture.card("", "Cy", small("WFg=")) + fixture.card("di", "Di", small("RGk=")));
  EXPECT_TRUE(program.waitUntil([&] { return photoOf("Di") == "|bytes Di"; }));
  EXPECT_EQ(photoOf("Cy"), "|bytes XX");
  program.with([&](AddressBook& book) { EXPECT_EQ(book.copyPeopleMatchingName("Cy")->front()->recordGUID(), guid); });
  fixture.remove("a.vcf");
  EXPECT_TRUE(program.waitUntil([&] { return photoOf("Ann") == "nobody"; }));
}

}  // namespace
}  // namespace pellor
