// What the sanitizers are told about GLib and the libraries over it, which are built without them.
#include "tests/services/EDSSanitizers.h"

// Their locks and atomic counters are not seen, so whatever they hand from thread to thread looks like a race. What
// the adapter and the tests do themselves is checked as ever.
extern "C" const char* __tsan_default_suppressions() {
  return "called_from_lib:libglib-2.0.so\n"
         "called_from_lib:libgobject-2.0.so\n"
         "called_from_lib:libgio-2.0.so\n"
         "called_from_lib:libedataserver-1.2.so\n"
         "called_from_lib:libedata-book-1.2.so\n"
         "called_from_lib:libebook-1.2.so\n"
         "called_from_lib:libebook-contacts-1.2.so\n"
         "mutex:libcamel\n";
}

// The registry of sources serves its signals from a thread that ends with it; what was to be freed there never is. No
// more of the stack is known than this, since GLib keeps no frame pointers. Contacts, clients and texts are allocated
// in other ways.
extern "C" const char* __lsan_default_suppressions() { return "leak:g_malloc0\n"; }
