// Ends with the id of its parent as exit code.
#include "root/process.h"

int main() { return static_cast<int>(crv::root::GetParentProcessId()); }
