// What the machine was before the tests, on disk before anything is changed, and putting it back. The journal lies in a folder of its own
// below the application data of all users, so that a later start finds it, from whatever folder it is started. Failures throw
// crv::exceptions::error.
#pragma once

#include <string>
#include <vector>

namespace crv::acceptance {

// What is in the way of the tests, one line each: a suite that is installed. Nothing of it is touched.
std::vector<std::wstring> InTheWay();

std::wstring JournalFile();
bool IsJournalThere();

// Saves everything that the tests may touch; the file is complete or not there.
void WriteJournal();

// Ends what still runs of the tests, puts everything back as the journal says, looks whether it is so, and deletes the journal.
void RestoreFromJournal();

// What is saved and put back, for a person.
std::vector<std::wstring> Touched();

}  // namespace crv::acceptance
