# What the workshop's scripts share: where things are, how they speak, and Wine with the project's own two machines.
# Sourced, never run; it needs bash and what every Debian has.
# shellcheck shell=bash

ROOT=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
CACHE=${XDG_CACHE_HOME:-${HOME:?neither XDG_CACHE_HOME nor HOME is set}/.cache}/corvid-wsc

# Everything that the scripts, the build and the tests use beyond a minimal Debian 12 with git and bash.
DEBIAN_PACKAGES=(
  g++-mingw-w64-i686-posix gcc-mingw-w64-i686-win32-runtime libboost-dev googletest  # the Windows build: the runtime, the second compiler
  clang-16 lld-16 llvm-16     # the compiler, the linker, and a reader of images, program databases and minidumps
  cmake ninja-build           # every build
  g++ libclang-rt-16-dev      # the native build under the sanitizers, the fuzzers in it
  libc6-i386                  # the loader of 32-bit Wine, on both machines
  python3 python3-pefile openssl sbsigntool  # the look at the finished DLL, and at its signature
  osslsigncode zip            # the packages
  lldb-16                     # the other reader of minidumps
  chromium chromium-driver python3-selenium  # the tests of the triage's page, and its picture
  clang-format-14 git         # the look at the sources: their format, and which are part of it
)

# Wine for 64-bit and 32-bit programs is unpacked into the cache and never installed. The stamp names the lists, so a changed list
# unpacks anew. FreeType keeps Wine from printing a notice in each program; with FreeType alone, without fontconfig, its window system
# fails at start-up and explorer.exe starts itself without end. The C library of the 64-bit programs is the machine's own.
WINE_LIBRARIES=(libunwind8 liblzma5 libfreetype6 libpng16-16 zlib1g libbrotli1 libfontconfig1 libexpat1 libuuid1)
WINE_PACKAGES=(wine libz-mingw-w64 {libwine,wine32,libc6,libgcc-s1}:i386 "${WINE_LIBRARIES[@]/%/:i386}"
  {libwine,wine64}:amd64 "${WINE_LIBRARIES[@]/%/:amd64}")
WINE_STAMP="2 ${WINE_PACKAGES[*]}"
WINE_DIR=$CACHE/wine

# Two machines: 64-bit Windows, where the suite's 32-bit programs run under WOW64, and 32-bit Windows. CORVID_WSC_BITS, or the option
# --bits of a script, which sets it for everything that the script starts, says which.
machine() {
  [[ $1 == 32 || $1 == 64 ]] || die "there is no $1-bit machine; --bits and CORVID_WSC_BITS take 32 or 64"
  export CORVID_WSC_BITS=$1
  PREFIX=${CORVID_WSC_PREFIX:-$ROOT/build/prefix}
  [[ $PREFIX == /* ]] || PREFIX=$PWD/$PREFIX
  local programs='Program Files (x86)'
  WINE=$WINE_DIR/usr/lib/wine/wine64
  WINESERVER=$WINE_DIR/usr/lib/wine/wineserver64
  if [[ $1 == 32 ]]; then
    PREFIX=${PREFIX%/}32
    programs='Program Files'
    WINE=$WINE_DIR/usr/lib/wine/wine
    WINESERVER=$WINE_DIR/usr/lib/wine/wineserver32
  fi
  PREFIX_STAMP="2 $1 $WINE_STAMP"
  SUITE="C:\\$programs\\CORVID Software\\Corvid"
  INSTALL_FOLDER="$PREFIX/drive_c/$programs/CORVID Software/Corvid"
  LOG_FOLDER="$PREFIX/drive_c/ProgramData/CORVID Software/Corvid/log"
}

say() { printf '%s\n' "$*" >&2; }

die() {
  printf '%s: %s\n' "${0##*/}" "$*" >&2
  exit 1
}

# holds_stamp FILE TEXT: whether the file holds exactly that line. Starts no process.
holds_stamp() {
  local line=
  [[ -f $1 ]] && read -r line <"$1" && [[ $line == "$2" ]]
}

# The stamp is written last; the programs are looked for as well, in case somebody has tidied up in the cache.
wine_is_unpacked() {
  local programs=$WINE_DIR/usr/lib/wine
  holds_stamp "$WINE_DIR/.stamp" "$WINE_STAMP" &&
    [[ -x $programs/wine && -x $programs/wine64 && -x $programs/wineserver32 && -x $programs/wineserver64 ]]
}
prefix_is_made() { holds_stamp "$PREFIX/.stamp" "$PREFIX_STAMP"; }

# The environment of every Windows program. No menus, no questions for Mono and Gecko, no debugger when a program crashes: the
# system then ends it with the exception's code, at once.
wine_environment() {
  local libraries=$WINE_DIR/lib/i386-linux-gnu:$WINE_DIR/usr/lib/i386-linux-gnu
  if [[ $CORVID_WSC_BITS == 64 ]]; then
    libraries+=:$WINE_DIR/lib/x86_64-linux-gnu:$WINE_DIR/usr/lib/x86_64-linux-gnu
    export WINEDLLPATH=$WINE_DIR/usr/lib/x86_64-linux-gnu/wine:$WINE_DIR/usr/lib/i386-linux-gnu/wine
  fi
  export LD_LIBRARY_PATH=$libraries${LD_LIBRARY_PATH:+:$LD_LIBRARY_PATH}
  export WINEPREFIX=$PREFIX WINEARCH=win$CORVID_WSC_BITS WINEDEBUG=${WINEDEBUG--all} WINESERVER WINELOADER=$WINE
  export WINEDLLOVERRIDES="winemenubuilder.exe,winedbg.exe,mscoree,mshtml=${WINEDLLOVERRIDES:+;$WINEDLLOVERRIDES}"
  export FONTCONFIG_FILE=$WINE_DIR/fonts.conf
  unset DISPLAY WAYLAND_DISPLAY
}

# hold_workshop NAME: one demo, check or package at a time in this clone. Waits for another one; ends with the caller.
hold_workshop() {
  mkdir -p "$ROOT/build"
  exec 9>>"$ROOT/build/.workshop"
  if ! flock -n 9; then
    say "${0##*/}: waiting for $(tail -n 1 "$ROOT/build/.workshop" 2>/dev/null || echo another run) in this clone"
    flock 9
  fi
  printf './%s (process %s)\n' "$1" "$$" >"$ROOT/build/.workshop"
}

# supervised COMMAND...: runs it in a process group of its own, so that `end_supervised` can end all of it at any moment.
# `supervised_too` does not wait for it; `await_supervised` waits for all that run.
SUPERVISED=()
supervised_too() {
  set -m
  "$@" </dev/null &
  SUPERVISED+=("$!")
  set +m
}

await_supervised() {
  local group status=0
  for group in "${SUPERVISED[@]}"; do wait "$group" || status=$?; done
  SUPERVISED=()
  return "$status"
}

supervised() {
  supervised_too "$@"
  await_supervised
}

end_supervised() {
  local group
  for group in "${SUPERVISED[@]}"; do kill -TERM -- "-$group" 2>/dev/null || true; done
  SUPERVISED=()
}

# build_quietly LOG TARGETS...: configures when needed and builds; a person at a terminal sees the progress, everybody else only
# what went wrong.
build_quietly() {
  local log=$1
  shift
  if [[ ! -f $ROOT/build/build.ninja ]]; then
    say "build: configuring"
    supervised cmake -S "$ROOT" --preset windows >"$log" 2>&1 || { tail -n 30 "$log" >&2 && die "cmake failed, see $log"; }
  fi
  [[ -f $ROOT/build/dist/wsc.dll ]] || say "build: compiling (once, a few minutes)"
  if [[ -t 2 ]]; then
    supervised ninja -C "$ROOT/build" "$@" >&2 || die "the build failed"
  else
    supervised ninja -C "$ROOT/build" "$@" >"$log" 2>&1 || { tail -n 60 "$log" >&2 && die "the build failed, see $log"; }
  fi
}

machine "${CORVID_WSC_BITS:-64}"
