#include "pellor/linux/contacts/internal/EVCardLibrary.h"

#include <dlfcn.h>
#include <libebook-contacts/libebook-contacts.h>

#include <algorithm>
#include <memory>
#include <stdexcept>

namespace pellor {

namespace {

constexpr const char* LibraryName = "libebook-contacts-1.2.so.4";
constexpr const char* LogDomain = "libebook-contacts";

thread_local std::vector<std::string>* warningsOfThisThread = nullptr;

// The host program may use this library as well: its messages go where they always went.
void receiveMessage(const gchar* domain, GLogLevelFlags level, const gchar* message, gpointer defaultHandler) {
  if (warningsOfThisThread) {
    warningsOfThisThread->emplace_back(message ? message : "");
    return;
  }
  reinterpret_cast<decltype(&g_log_default_handler)>(defaultHandler)(domain, level, message, nullptr);
}

/// The entry points that are needed, looked up once. The library stays loaded: GLib's types cannot be unloaded.
struct Library {
  void* handle = nullptr;
  decltype(&e_vcard_new_from_string) newFromString = nullptr;
  decltype(&e_vcard_get_attributes) attributes = nullptr;
  decltype(&e_vcard_attribute_get_name) attributeName = nullptr;
  decltype(&e_vcard_attribute_get_params) parameters = nullptr;
  decltype(&e_vcard_attribute_get_values_decoded) decodedValues = nullptr;
  decltype(&e_vcard_attribute_param_get_name) parameterName = nullptr;
  decltype(&e_vcard_attribute_param_get_values) parameterValues = nullptr;
  decltype(&g_object_unref) unref = nullptr;

  Library() : handle(dlopen(LibraryName, RTLD_NOW | RTLD_LOCAL | RTLD_NODELETE)) {
    if (!handle) throw std::runtime_error(dlerror());
    find(newFromString, "e_vcard_new_from_string");
    find(attributes, "e_vcard_get_attributes");
    find(attributeName, "e_vcard_attribute_get_name");
    find(parameters, "e_vcard_attribute_get_params");
    find(decodedValues, "e_vcard_attribute_get_values_decoded");
    find(parameterName, "e_vcard_attribute_param_get_name");
    find(parameterValues, "e_vcard_attribute_param_get_values");
    find(unref, "g_object_unref");
    routeMessages();
  }

  void routeMessages() const {
    decltype(&g_log_set_handler) setHandler = nullptr;
    decltype(&g_log_default_handler) defaultHandler = nullptr;
    find(setHandler, "g_log_set_handler");
    find(defaultHandler, "g_log_default_handler");
    const auto levels =
        static_cast<GLogLevelFlags>(G_LOG_LEVEL_WARNING | G_LOG_LEVEL_MESSAGE | G_LOG_LEVEL_INFO | G_LOG_LEVEL_DEBUG);
    setHandler(LogDomain, levels, receiveMessage, reinterpret_cast<gpointer>(defaultHandler));
  }

  template <class Function>
  void find(Function& function, const char* name) const {
    function = reinterpret_cast<Function>(dlsym(handle, name));
    if (!function) throw std::runtime_error(std::string(LibraryName) + " has no " + name);
  }
};

const Library& library() {
  static const Library loaded;
  return loaded;
}

class WarningsScope {
 public:
  explicit WarningsScope(std::vector<std::string>& warnings) { warningsOfThisThread = &warnings; }
  ~WarningsScope() { warningsOfThisThread = nullptr; }
  WarningsScope(const WarningsScope&) = delete;
  WarningsScope& operator=(const WarningsScope&) = delete;
};

std::string upperCased(const char* text) {
  std::string result = text ? text : "";
  std::transform(result.begin(), result.end(), result.begin(),
                 [](char c) { return c >= 'a' && c <= 'z' ? static_cast<char>(c - 'a' + 'A') : c; });
  return result;
}

std::vector<std::string> texts(const GList* list) {
  std::vector<std::string> result;
  for (; list; list = list->next) result.emplace_back(list->data ? static_cast<const char*>(list->data) : "");
  return result;
}

// Pictures and the like are most of a card's bytes and nobody asks for them: they are not decoded.
bool isBulky(const std::string& name) { return name == "PHOTO" || name == "LOGO" || name == "SOUND" || name == "KEY"; }

CardProperty propertyOf(const Library& parser, EVCardAttribute* attribute) {
  CardProperty property;
  property.name = upperCased(parser.attributeName(attribute));
  for (const GList* item = parser.parameters(attribute); item; item = item->next) {
    auto* parameter = static_cast<EVCardAttributeParam*>(item->data);
    property.parameters.push_back(
        {upperCased(parser.parameterName(parameter)), texts(parser.parameterValues(parameter))});
  }
  if (isBulky(property.name)) return property;
  for (const GList* item = parser.decodedValues(attribute); item; item = item->next) {
    const auto* value = static_cast<const GString*>(item->data);
    property.values.emplace_back(value->str, value->len);
  }
  return property;
}

}  // namespace

std::vector<std::string> CardProperty::parameterValues(const std::string& parameter) const {
  std::vector<std::string> result;
  for (const CardParameter& candidate : parameters) {
    if (candidate.name == parameter) result.insert(result.end(), candidate.values.begin(), candidate.values.end());
  }
  return result;
}

ParsedCard parseCard(const std::string& text) {
  const Library& parser = library();
  ParsedCard result;
  const WarningsScope scope(result.warnings);
  const std::unique_ptr<EVCard, decltype(parser.unref)> card(parser.newFromString(text.c_str()), parser.unref);
  for (const GList* item = parser.attributes(card.get()); item; item = item->next)
    result.properties.push_back(propertyOf(parser, static_cast<EVCardAttribute*>(item->data)));
  return result;
}

}  // namespace pellor
