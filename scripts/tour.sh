# The tour of ./demo: requests in an order that tells a story, each with the result and the output that it must have. Sourced by
# demo, which gives `centre` and the machine made ready.
# shellcheck shell=bash

OUTPUT=
STEPS=0
DIFFERENCES=0

differs() {
  printf '\n*** DIFFERS: %s\n' "$1"
  DIFFERENCES=$((DIFFERENCES + 1))
}

chapter() { printf '\n\n=== %s\n' "$*"; }

# step RESULT ARGS...: one request and the result that it must have.
step() {
  local result=$1
  shift
  STEPS=$((STEPS + 1))
  printf '\n'
  OUTPUT=$(centre run "$@") || true
  printf '%s\n' "$OUTPUT"
  [[ ${OUTPUT##*$'\n'} == "result $result" ]] || differs "the result had to be $result"
}

# beforehand PROGRAM ARGS...: something done to the machine before the next step.
beforehand() {
  printf '\n> %s\n' "$*"
  if [[ $1 == centre ]]; then "$@" >/dev/null; else "$ROOT/scripts/wine" "$@" </dev/null >/dev/null; fi
}

# shows TEXT...: what the output of the last step must hold, as extended regular expressions.
shows() {
  local text
  for text in "$@"; do
    grep -Eq -- "$text" <<<"$OUTPUT" || differs "the output had to show: $text"
  done
}

hides() {
  local text
  for text in "$@"; do
    ! grep -Eq -- "$text" <<<"$OUTPUT" || differs "the output had not to show: $text"
  done
}

tour() {
  centre clear >/dev/null
  set_windows_version win10

  chapter "A clean machine: the first update of a product registers it by itself, then reports its state"
  step 0x00000000 /svc /update /antivirus /state:on /signatures:up_to_date
  shows 'wrong display name - reregistering' 'Registering struct IWscAVStatus' 'UpdateStatus succeeded: 0x00000000' \
    '^anti-virus +Corvid Antivirus +on +up to date' '^anti-spyware +\(not registered\)' '^firewall +\(not registered\)'

  chapter "All three products: one request registers them in the order anti-virus, anti-spyware, firewall"
  step 0x00000000 /svc /register /antivirus /antispyware /firewall
  shows '^anti-virus +Corvid Antivirus' '^anti-spyware +Corvid Antivirus' '^firewall +Corvid Antivirus' \
    'Registering struct IWscASStatus' 'Registering struct IWscFWStatus'

  chapter "States: on, off and snoozed reach Security Center; the firewall has no signatures"
  step 0x00000000 /svc /update /antivirus /antispyware /firewall /state:on /signatures:up_to_date
  shows '^anti-virus .* on +up to date' '^anti-spyware .* on +up to date' '^firewall +Corvid Antivirus +on '
  hides 'reregistering'
  step 0x00000000 /svc /update /antivirus /antispyware /firewall /state:off /signatures:up_to_date
  shows '^anti-virus .* off +up to date' '^anti-spyware .* off +up to date' '^firewall +Corvid Antivirus +off '
  step 0x00000000 /svc /update /antivirus /antispyware /firewall /state:snoozed /signatures:up_to_date
  shows '^anti-virus .* snoozed +up to date' '^anti-spyware .* snoozed +up to date' '^firewall +Corvid Antivirus +snoozed '

  chapter "Old signatures: the product stays on, Security Center learns that they are out of date"
  step 0x00000000 /svc /update /antivirus /state:on /signatures:out_of_date
  shows '^anti-virus .* on +out of date'

  chapter "A name changed behind its back: the record says another name, so the next update registers again"
  beforehand reg add 'HKLM\SOFTWARE\CORVID Software\Corvid\Wsc' /v IWscAVStatus /d 'Another Antivirus' /f
  step 0x00000000 /svc /update /antivirus /state:on /signatures:up_to_date
  shows 'wrong display name - reregistering' 'Unregister succeeded: 0x00000000' 'Register succeeded: 0x00000000' \
    '^anti-virus +Corvid Antivirus +on +up to date'

  chapter "Security Center is busy: it answers \"pending\" twice (0x8000000a), the call is repeated and succeeds"
  beforehand centre script IWscAVStatus.UpdateStatus 0x8000000a 0x8000000a
  step 0x00000000 /svc /update /antivirus /state:on /signatures:up_to_date
  shows 'wsc pending: 0$' 'UpdateStatus succeeded: 0x00000000'

  chapter "Security Center refuses: its code becomes the result, and the log names the step that failed"
  beforehand centre script IWscFWStatus.UpdateStatus 0x80070005
  step 0x80070005 /svc /update /firewall /state:off
  shows 'run: WSC UpdateStatus: FW \(code 0x80070005\)'

  chapter "Unregister: the product leaves Security Center; once more, it was not there, which counts as success"
  step 0x00000000 /svc /unregister /antivirus
  shows '^anti-virus +\(not registered\)' 'Unregister succeeded: 0x00000000'
  step 0x00000000 /svc /unregister /antivirus
  shows 'Unregister succeeded: 0x80070002'

  chapter "Unregistered but on record: the update is told \"not registered\", registers and repeats itself once"
  step 0x00000000 /svc /update /antivirus /state:on /signatures:up_to_date
  shows 'Not registered, registering\.\.\.' '^anti-virus +Corvid Antivirus +on +up to date'

  chapter "What Security Center asks of the suite: it may not switch the protection off"
  step 0xffffffff /av /disable
  shows 'run: wsc disable refused \(code 0xffffffff\)'

  chapter "Wrong requests: each is refused with its code (87 or 160) and one line that names what is wrong"
  step 0x00000057
  shows 'run: run: "'
  step 0x00000057 /update /antivirus /state:on /signatures:up_to_date
  shows 'run: run: "'
  step 0x00000057 svc update antivirus
  step 0x000000a0 /svc
  shows 'bad action \(code 0x000000a0\)'
  step 0x000000a0 /svc /restart /antivirus
  shows 'bad action \(code 0x000000a0\)'
  step 0x000000a0 /svc /update /state:on /signatures:up_to_date
  shows 'no product specified \(code 0x000000a0\)'
  step 0x000000a0 /svc /update /antivirus /state:ON /signatures:up_to_date
  shows 'to_prod_state ON \(code 0x000000a0\)'
  step 0x000000a0 /svc /update /antivirus /state:on /signatures:yesterday
  shows 'to_signature_status yesterday \(code 0x000000a0\)'
  step 0xffffffff /fw /disable
  shows 'unsupported cmdline options: "'

  restore_windows_version
  tour_actions
  tour_system
  tour_crash

  printf '\n\n'
  if ((DIFFERENCES)); then
    printf 'The tour took %d steps; %d things differ from what was announced (look for ***).\n' "$STEPS" "$DIFFERENCES"
    return 1
  fi
  printf 'The tour took %d steps; all came out as announced. The log and the minidumps are in %s\n' "$STEPS" "$LOG_FOLDER"
}
