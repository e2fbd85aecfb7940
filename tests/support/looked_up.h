// The test program's look-ups of functions by name, answered with a function of the test's own. One thread.
#pragma once

namespace crv::test {

// From now on GetProcAddress gives `answer` for every function of that name, whatever the library. The result is the real function, null
// when the library has none.
void* AnswerLookUps(const char* library, const char* function, void* answer);

void EndAnswer(const char* function);

}  // namespace crv::test
