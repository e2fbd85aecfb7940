// Lets the compiler check the arguments of printf-like functions against their narrow format. The check is an attribute of the
// GNU compilers; its "ms_printf" flavour knows the C runtime's conventions ("%ls", "%I64u"). Wide formats cannot be checked.
#pragma once

#if defined(__GNUC__) && defined(_WIN32)
// Positions count from 1; in member functions `this` is position 1.
#define CRV_PRINTF(format_position, first_argument) __attribute__((format(ms_printf, format_position, first_argument)))
#else
#define CRV_PRINTF(format_position, first_argument)
#endif
