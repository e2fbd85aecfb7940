# The chapters of the tour that show the crash guard: a host that crashes leaves a minidump, which two independent readers open.
# Sourced by demo, whose functions it uses. crasher.exe is a host that crashes on purpose, with the whole module in it.
# shellcheck shell=bash

CRASHER='C:\Program Files\CORVID Software\Corvid\crasher.exe'

# crash EXIT_CODE CASE ARGS...: one crashing process; its whole exit code, what it added to the log, and its new dumps.
crash() {
  local code=$1 dumps log=$LOG_FOLDER/wsc.log size=0
  shift
  [[ ! -f $log ]] || size=$(stat -c %s "$log")
  STEPS=$((STEPS + 1))
  printf '\ncrasher.exe %s\n' "$*"
  dumps=$(list_dumps)
  OUTPUT=$("$ROOT/scripts/wine" "$CRASHER" watch "$@" </dev/null 2>/dev/null | tr -d '\r') || true
  OUTPUT+=$'\n'$(tail -c "+$((size + 1))" "$log")
  OUTPUT+=$'\n'$(show_dumps "$dumps")
  printf '%s\n' "$OUTPUT"
  grep -q "^exit $code\$" <<<"$OUTPUT" || differs "the exit code had to be $code"
}

list_dumps() { find "$LOG_FOLDER" -name '*.mdmp' | sort; }

# show_dumps BEFORE: those that are not in the list of before.
show_dumps() {
  local dump
  while IFS= read -r dump; do
    printf '\n%s\n' "$dump"
    "$ROOT/scripts/minidump.py" "$dump" "$ROOT/build/standins" "$ROOT/build/dist" || true
  done < <(comm -13 <(printf '%s\n' "$1") <(list_dumps))
}

# dumps_written N: how many dumps the last output had to show.
dumps_written() {
  local count
  count=$(grep -c '^unp[0-9]*\.mdmp, ' <<<"$OUTPUT") || true
  [[ $count == "$1" ]] || differs "there had to be $1 new dumps, not $count"
}

tour_crash() {
  local dumps
  centre clear >/dev/null

  chapter "A wrong request throws a fatal error: it is refused as ever, and leaves a minidump of the moment of the throw"
  dumps=$(list_dumps)
  step 0x000000a0 /svc /update
  OUTPUT+=$'\n'$(show_dumps "$dumps")
  printf '%s\n' "${OUTPUT#*result 0x????????}"
  shows 'Minidump created successfully. Exception code is: e06d7363' 'stopped +by exception 0xe06d7363' \
    'comment +Cause: VectoredExceptionHandler' 'RunSvcMode|svc_mode.cpp'
  dumps_written 1

  chapter "CrashNow during a run: the external dumper writes the dump, and the self-protection driver is told of it"
  beforehand centre driver start
  crash 0xc0000005 during-run
  shows 'User-initiated crash commencing' 'Entering TopLevelExceptionFilter' 'stopped +by exception 0xc0000005' \
    'crv::crashguard::CrashNow at user_crash.cpp:[0-9]+' 'comment +\(empty\)'
  dumps_written 1
  OUTPUT=$(centre driver status)
  printf '\n%s\n' "$OUTPUT"
  shows ' 1$'
  centre driver remove >/dev/null

  chapter "The AV manager's library crashes while the host enables the protection: the host ends, the dump names the place"
  centre clear >/dev/null
  beforehand centre script CavmStart crash
  dumps=$(list_dumps)
  step 0xc0000005 /av /enable
  OUTPUT=$(show_dumps "$dumps")
  printf '%s\n' "$OUTPUT"
  shows 'stopped +by exception 0xc0000005' 'CrashAsTold at scripted_calls.cpp:[0-9]+'
  dumps_written 1

  chapter "CrashNow during a run without the dumper: the process writes its dump itself"
  beforehand centre library cvDump32.exe away
  crash 0xc0000005 during-run
  shows 'only internal dumping available' 'Failed to start process dumper at .*cvDump32.exe. due to error: 2' \
    'Minidump generation failed with error: 7' 'comment +Dumped by CrashHandler' \
    'crv::crashguard::CrashNow at user_crash.cpp:[0-9]+'
  dumps_written 1
  centre clear >/dev/null

  chapter "Four fatal errors in one process: three dumps are the limit"
  crash 0x00000000 four-fatals
  shows 'CrashHandler dump limit reached' 'ThrowFatal|FourFatals'
  dumps_written 3

  chapter "A dumper that crashes itself: the dump is written all the same"
  beforehand centre dumper crash
  crash 0xc0000094 division
  shows 'Minidump generation failed with error: -1073741819' 'DivisionByZero at faults.cpp:[0-9]+'
  dumps_written 1
  centre dumper write >/dev/null
}
