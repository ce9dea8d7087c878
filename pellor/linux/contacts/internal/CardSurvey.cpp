#include "pellor/linux/contacts/internal/CardSurvey.h"

#include "pellor/linux/contacts/internal/CardFile.h"

namespace pellor {

CardSurvey surveyCards(CardSource& source) {
  CardSurvey survey;
  for (const auto& [name, signature] : source.list()) {
    CardContent content = source.read(name);
    if (content.isMissing) continue;
    if (!content.text) {
      survey.unusable.push_back(name + ": " + content.problem);
      continue;
    }
    const CardFileReading reading = readCardFile(std::move(*content.text), name, {});
    survey.contacts += reading.cards.size();
    for (const CardFault& fault : reading.faults) survey.unusable.push_back(name + ": " + textOf(fault));
  }
  return survey;
}

}  // namespace pellor
