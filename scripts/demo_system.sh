# The chapters of the tour that show wsc.dll living with the system below it: Security Center's service, Windows Defender, older
# versions of Windows, the self-protection driver. Sourced by demo, whose functions it uses.
# shellcheck shell=bash

# step_on VERSION RESULT ARGS...: as step, with the host believing to run on that Windows.
step_on() {
  local version=$1
  shift
  printf '\n> on %s\n' "$version"
  set_windows_version "$version"
  step "$@"
  restore_windows_version
}

tour_system() {
  centre clear >/dev/null

  chapter "Security Center's service is stopped: the module starts it and then makes its calls"
  beforehand centre service wscsvc demand
  beforehand centre service wscsvc stop
  step 0x00000000 /svc /register /firewall
  shows 'wscsvc state 3' 'wscsvc is not running, starting now' 'wsc service started successfully' '^wscsvc +running'

  chapter "The service is disabled: the module never starts it, but notices when somebody else does"
  beforehand centre service wscsvc stop
  beforehand centre service wscsvc disable
  beforehand centre service wscsvc enable-and-start-after 1500
  step 0x00000000 /svc /update /firewall /state:on
  shows 'wscsvc state 4' 'service state at the end of wait is started' '^firewall +Corvid Antivirus +on '
  hides 'starting now'

  chapter "Windows 7: a product that is on switches Windows Defender off, unregistering switches it back on"
  step_on win7 0x00000000 /svc /update /antivirus /state:on /signatures:up_to_date
  shows 'disabling windows defender' '^WinDefend +(stopped|stop pending)' '^DisableAntiSpyware +1'
  step_on win7 0x00000000 /svc /unregister /antivirus
  shows 'enabling windows defender' '^WinDefend +(running|start pending)' '^DisableAntiSpyware +\(no key\)'

  chapter "Windows 7: a user's veto, the number 42, keeps Defender on; 41 is no veto"
  beforehand centre defender-veto 42
  step_on win7 0x00000000 /svc /update /antivirus /state:on /signatures:up_to_date
  hides 'disabling windows defender' '^DisableAntiSpyware +1'
  beforehand centre defender-veto 41
  step_on win7 0x00000000 /svc /update /antivirus /state:on /signatures:up_to_date
  shows 'disabling windows defender' '^DisableAntiSpyware +1'

  chapter "Windows 10: Defender looks after itself, the module leaves it alone"
  centre clear >/dev/null
  step_on win10 0x00000000 /svc /update /antivirus /state:on /signatures:up_to_date
  hides 'windows defender' '^DisableAntiSpyware +1'

  chapter "Windows XP: the products are instances of WMI classes; anti-spyware does not exist there yet"
  step_on winxp 0x00000000 /svc /update /antivirus /state:on /signatures:up_to_date
  shows 'update_xp AntiVirusProduct' 'SecurityCenter +AntiVirusProduct'
  hides 'SecurityCenter2'
  step_on winxp 0x00000000 /svc /register /antispyware
  hides 'AntiSpywareProduct'

  chapter "Windows Vista without a service pack: WMI as well, in a namespace of its own"
  centre clear >/dev/null
  step_on vista 0x00000000 /svc /update /antivirus /antispyware /state:snoozed /signatures:out_of_date
  shows 'SecurityCenter2 +AntiVirusProduct' 'AntiSpywareProduct'
  step_on vista 0x00000000 /svc /unregister /antivirus
  shows 'unregistration_xp AntiVirusProduct'
  step_on vista 0x80041002 /svc /unregister /antivirus
  shows 'wmi DeleteInstance \(code 0x80041002\)'

  chapter "The self-protection driver does not trust the process that started the host: nothing is done, the result is 5"
  centre clear >/dev/null
  beforehand centre driver start
  beforehand centre driver distrust
  step 0x00000005 /svc /register /antivirus
  shows 'not trusted start, parent pid: [0-9]+ \(code 0x00000005\)' '^anti-virus +\(not registered\)'

  chapter "A driver that answers too little, or none at all: the start counts as trusted"
  beforehand centre driver short
  step 0x00000000 /svc /register /antivirus
  beforehand centre driver remove
  step 0x00000000 /svc /unregister /antivirus
  centre clear >/dev/null
}
