# The chapters of the tour that show what Security Center asks of the suite: enable, disable, update, start the firewall. Sourced
# by demo, whose functions it uses. The restart with administrator rights is not shown: every program in Wine is an
# administrator's, and Wine gives a restricted one no more rights when it is asked to. shellcheck shell=bash

tour_actions() {
  local setup='\\setup'
  centre clear >/dev/null

  chapter "Enable: a stopped provider is started, a suspended one resumed, a running one left alone"
  beforehand centre providers stopped suspended running
  step 0x00000000 /av /enable
  shows 'wsc starting providers' '^Shield 1 +running' '^Shield 2 +running' '^Shield 3 +running'
  beforehand centre providers stopped
  step 0x00000000 /as /enable
  shows '^Shield 1 +running'

  chapter "The AV manager fails: its status is the result; it is stopped again, and what already runs goes on running"
  beforehand centre providers stopped stopped stopped
  beforehand centre script CavmProviderStart ok 0x0000001f
  step 0x0000001f /av /enable
  shows 'run: provider start \(code 0x0000001f\)' '^Shield 1 +running' '^Shield 2 +stopped' '^Shield 3 +stopped'
  beforehand centre script CavmStart 0x80070422
  step 0x80070422 /av /enable
  shows 'run: CavmStart failed \(code 0x80070422\)'
  hides 'wsc starting providers'

  chapter "Disable: the suite refuses to be switched off; an update asked for in the same breath never begins"
  step 0xffffffff /av /disable
  shows 'run: wsc disable refused \(code 0xffffffff\)'
  step 0xffffffff /as /disable
  step 0xffffffff /av /disable /update
  hides 'Updating AV' 'instup.exe'

  chapter "Update in two runs of the installer: the first one moves the new installer to New_2, the second one runs it there"
  centre clear >/dev/null
  beforehand centre installer update_setup moves-to New_2
  beforehand centre installer update_vps_and_program leaves-reboot
  step 0x00000000 /av /update /upgrade
  shows 'Updating AV\.' 'Upgrading AV\.' '^current +New_2 +yes' \
    "^\"C:.*$setup\\\\instup.exe\" /instop:update_setup /wait = 0x00000000\$" \
    "^\"C:.*$setup\\\\New_2\\\\instup.exe\" /instop:update_vps_and_program /wait = 0x00000000\$"

  chapter "The first run fails with 3: there is no second one, and 3 is the result"
  centre clear >/dev/null
  beforehand centre installer update_setup exit 3
  step 0x00000003 /av /update
  shows 'run: setup run failed \(code 0x00000003\)' '/instop:update_setup /wait = 0x00000003$'
  hides 'update_vps_and_program'

  chapter "The installer's settings are gone: a run without arguments repairs them first"
  centre clear >/dev/null
  beforehand centre settings-away
  step 0x00000000 /av /update
  shows "^\"C:.*$setup\\\\instup.exe\" = 0x00000000\$" "$setup\\\\New\\\\instup.exe\" /instop:update_vps_and_program"

  chapter "No installation is registered: there is nothing to run"
  beforehand centre installation none
  step 0xffffffff /av /update
  shows 'run: update program failed \(code 0xffffffff\)'

  chapter "The firewall is started; when it cannot start, its status is the result"
  centre clear >/dev/null
  step 0x00000000 /fw /enable
  shows 'Starting FW\.' '^on$'
  beforehand centre script Firewall.Start 0x80070005
  step 0x80070005 /fw /enable
  shows 'run: start firewall error \(code 0x80070005\)'

  chapter "A suite without its libraries: the log names the one that is missing"
  beforehand centre library cavm4h.dll away
  step 0xffffffff /av /enable
  shows 'run: cannot load C:.*\\cavm4h\.dll'
  beforehand centre library crvData.dll away
  step 0xffffffff /fw /enable
  shows 'run: cannot load crvData\.dll'
  step 0xffffffff /as
  shows 'unsupported cmdline options: "'
  centre clear >/dev/null
}
