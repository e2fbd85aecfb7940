// The calling program's own look-ups of functions by name, answered with another function: for the program itself and the static libraries
// in it. One thread.
#pragma once

namespace crv::standins {

// From now on GetProcAddress gives `answer` for every function of that name, whatever the library. The result is the real function, null
// when the library has none.
void* AnswerLookUps(const char* library, const char* function, void* answer);

void EndAnswer(const char* function);

}  // namespace crv::standins
