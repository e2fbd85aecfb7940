// Lets the compiler check the arguments of printf-like functions against their narrow format. The check is an attribute of GCC and
// Clang. GCC has a flavour of it for the C runtime's conventions ("%ls", "%I64u"), which Clang takes for the only ones on Windows.
// Wide formats cannot be checked.
#pragma once

// Positions count from 1; in member functions `this` is position 1.
#if defined(__clang__) && defined(_WIN32)
#define CRV_PRINTF(format_position, first_argument) __attribute__((format(printf, format_position, first_argument)))
#elif defined(__GNUC__) && defined(_WIN32)
#define CRV_PRINTF(format_position, first_argument) __attribute__((format(ms_printf, format_position, first_argument)))
#else
#define CRV_PRINTF(format_position, first_argument)
#endif
