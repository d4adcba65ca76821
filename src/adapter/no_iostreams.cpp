// Takes the standard iostream objects out of a program that has the C++ run-time library linked in.
//
// TinyXML includes <iostream>, which has the program set up cin, cout, their wide forms and all
// that a locale consists of before it gets to main: three quarters of its code, and a tenth of the
// time that a request for information takes. Nothing here uses them; output goes through stdio.
//
// The linker puts these functions in the place of std::ios_base::Init's constructor and destructor
// (see LinkRunTimeIn.cmake), so none of the objects works. tests/check_linking sees to it that none
// is used.

// NOLINTBEGIN(bugprone-reserved-identifier,cert-dcl37-c,cert-dcl51-cpp): as the linker names them
// NOLINTBEGIN(readability-identifier-naming)

extern "C" void __wrap__ZNSt8ios_base4InitC1Ev(void* /*init*/) {}

extern "C" void __wrap__ZNSt8ios_base4InitD1Ev(void* /*init*/) {}

// NOLINTEND(readability-identifier-naming)
// NOLINTEND(bugprone-reserved-identifier,cert-dcl37-c,cert-dcl51-cpp)
