// Which kind of Windows this is. Any thread.
#pragma once

namespace crv::standins {

bool Is64BitWindows();  // this 32-bit program runs under WOW64

}  // namespace crv::standins
