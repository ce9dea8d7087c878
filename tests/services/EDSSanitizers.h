// The texts that tell the sanitizers which reports about GLib are none. A program of the build that is run by a test
// does not have them and is given them by its environment.
#pragma once

extern "C" const char* __tsan_default_suppressions();
extern "C" const char* __lsan_default_suppressions();
