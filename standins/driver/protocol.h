// What the self-protection driver and those who install it share. It includes nothing, because a driver cannot include the
// headers of user programs.
#pragma once

#define CORVID_DRIVER_KEY L"SOFTWARE\\Corvid Stand-ins\\Driver"

#define CORVID_DRIVER_ANSWER L"Answer"
#define CORVID_DRIVER_SHORT L"Short"
#define CORVID_DRIVER_STATUS L"Status"
#define CORVID_DRIVER_QUERIES L"Queries"
#define CORVID_DRIVER_LAST_PROCESS L"LastProcess"
#define CORVID_DRIVER_DUMPS L"FatalDumps"
