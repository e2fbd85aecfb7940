# Which Windows wsc_proxy.exe believes to run on, for one request. What stood in the registry before is written to a file first,
# so that it can be put back, also by the next run after one that was killed. Sourced, after common.sh.
# shellcheck shell=bash

WINDOWS_VERSIONS="winxp vista vistasp2 win7 win8 win10"
VERSION_BACKUP=$PREFIX/.windows-version.reg

HOST_DEFAULTS='HKEY_CURRENT_USER\Software\Wine\AppDefaults\wsc_proxy.exe'
VERSION_KEY='HKEY_LOCAL_MACHINE\Software\Microsoft\Windows NT\CurrentVersion'
SERVICE_PACK_KEY='HKEY_LOCAL_MACHINE\System\CurrentControlSet\Control\Windows'

is_windows_version() { [[ -n $1 && " $WINDOWS_VERSIONS " == *" $1 "* ]]; }

# registry_value KEY NAME: its data, nothing when it is missing.
registry_value() {
  "$ROOT/scripts/wine" reg query "$1" /v "$2" 2>/dev/null </dev/null | tr -d '\r' |
    sed -nE 's/^    .*    REG_[A-Z]+    ?//p' || true
}

import_registry() {
  "$ROOT/scripts/wine" regedit /S "Z:${1//\//\\}" </dev/null
}

# set_windows_version VERSION: until restore_windows_version. The oldest Vista, which has no service pack, cannot be named for one
# program: there the machine's own version values say it.
set_windows_version() {
  local name lines=() service_pack
  restore_windows_version
  for name in CurrentVersion CurrentBuildNumber CSDVersion; do
    lines+=("\"$name\"=\"$(registry_value "$VERSION_KEY" "$name")\"")
  done
  service_pack=$(registry_value "$SERVICE_PACK_KEY" CSDVersion)
  printf '%s\n' REGEDIT4 '' "[-$HOST_DEFAULTS]" '' "[$VERSION_KEY]" "${lines[@]}" '' "[$SERVICE_PACK_KEY]" \
    "$(printf '"CSDVersion"=dword:%08x' "${service_pack:-0}")" >"$VERSION_BACKUP.new"
  mv "$VERSION_BACKUP.new" "$VERSION_BACKUP"

  local change=$PREFIX/.windows-version-change.reg
  if [[ $1 == vista ]]; then
    printf '%s\n' REGEDIT4 '' "[-$HOST_DEFAULTS]" '' "[$VERSION_KEY]" '"CurrentVersion"="6.0"' '"CurrentBuildNumber"="6000"' \
      '"CSDVersion"=""' '' "[$SERVICE_PACK_KEY]" '"CSDVersion"=dword:00000000' >"$change"
  else
    printf '%s\n' REGEDIT4 '' "[$HOST_DEFAULTS]" "\"Version\"=\"${1%sp2}\"" >"$change"
  fi
  import_registry "$change"
  rm -f "$change"
}

restore_windows_version() {
  [[ -f $VERSION_BACKUP ]] || return 0
  import_registry "$VERSION_BACKUP" && rm -f "$VERSION_BACKUP"
}
