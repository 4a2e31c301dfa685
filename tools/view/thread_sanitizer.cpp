// SPDX-License-Identifier: Apache-2.0
// What ThreadSanitizer does not see in cpp-httplib, which was built without it.
#ifdef __SANITIZE_THREAD__

/// It asks for this. The library's static variables have guards, of which only the library knows.
extern "C" const char* __tsan_default_suppressions();
extern "C" const char* __tsan_default_suppressions()
{
    return "called_from_lib:libcpp-httplib.so\n";
}

#endif
