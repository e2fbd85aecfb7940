// starter64.exe [/limited] COMMAND LINE: a 64-bit program that starts another one, waits for it and ends with its exit code. With
// /limited the other one runs without the rights of an administrator. When this one is killed, so are all that it started. It has no
// C runtime: the only one that is at hand is for 32-bit programs.
#include <windows.h>

enum { failed_to_start = 0xE0570003 };  // a failure of the customer facility, which no program of the suite ends with

static const wchar_t* skip_word(const wchar_t* at) {
  for (BOOL quoted = FALSE; *at && (quoted || *at != L' '); ++at) {
    if (*at == L'"') quoted = !quoted;
  }
  while (*at == L' ') ++at;
  return at;
}

static BOOL begins_with(const wchar_t* text, const wchar_t* word) {
  while (*word && *text == *word) ++text, ++word;
  return !*word;
}

static void end_everything_with_this_process(void) {
  static JOBOBJECT_EXTENDED_LIMIT_INFORMATION limits;
  const HANDLE job = CreateJobObjectW(NULL, NULL);
  limits.BasicLimitInformation.LimitFlags = JOB_OBJECT_LIMIT_KILL_ON_JOB_CLOSE;
  SetInformationJobObject(job, JobObjectExtendedLimitInformation, &limits, sizeof(limits));
  AssignProcessToJobObject(job, GetCurrentProcess());
}

// The token of this process without its membership of the administrators.
static HANDLE limited_token(void) {
  static BYTE administrators[SECURITY_MAX_SID_SIZE];
  static SID_AND_ATTRIBUTES disabled;
  DWORD size = sizeof(administrators);
  HANDLE own, limited = NULL;
  disabled.Sid = administrators;
  if (OpenProcessToken(GetCurrentProcess(), TOKEN_DUPLICATE | TOKEN_ASSIGN_PRIMARY | TOKEN_QUERY, &own) &&
      CreateWellKnownSid(WinBuiltinAdministratorsSid, NULL, administrators, &size)) {
    CreateRestrictedToken(own, 0, 1, &disabled, 0, NULL, 0, NULL, &limited);
  }
  return limited;
}

void entry(void) {
  static wchar_t command_line[32768];
  static STARTUPINFOW startup;
  static PROCESS_INFORMATION started;
  const wchar_t* rest = skip_word(GetCommandLineW());
  const BOOL limited = begins_with(rest, L"/limited ");
  const HANDLE token = limited ? limited_token() : NULL;
  DWORD code = failed_to_start;
  if (limited) rest = skip_word(rest);
  lstrcpynW(command_line, rest, ARRAYSIZE(command_line));

  end_everything_with_this_process();
  GetStartupInfoW(&startup);
  const BOOL done =
      limited ? token && CreateProcessAsUserW(token, NULL, command_line, NULL, NULL, TRUE, 0, NULL, NULL, &startup, &started)
              : CreateProcessW(NULL, command_line, NULL, NULL, TRUE, 0, NULL, NULL, &startup, &started);
  if (done) {
    WaitForSingleObject(started.hProcess, INFINITE);
    GetExitCodeProcess(started.hProcess, &code);
  }
  ExitProcess(code);
}
