<#
The second user: make, run, remove. He is an ordinary user with a profile and a registry of his own; his
password comes in KESTRUNE_PASSWORD. `run` ends with the program's code. Started by machine.py.
#>
param(
  [Parameter(Mandatory)] [ValidateSet('make', 'run', 'remove')] [string] $Action,
  [string] $Folder, [string] $Program, [string] $Arguments, [string] $Log
)
$ErrorActionPreference = 'Stop'
$name = 'kestrune-test'
if ($Action -eq 'remove') {
  Remove-LocalUser $name
  exit 0
}
$secret = ConvertTo-SecureString $env:KESTRUNE_PASSWORD -AsPlainText -Force
if ($Action -eq 'make') {
  New-LocalUser $name -Password $secret -PasswordNeverExpires | Out-Null
  Add-LocalGroupMember -SID S-1-5-32-545 -Member $name -ErrorAction SilentlyContinue
  icacls $Folder /grant "${name}:(OI)(CI)M"
  exit $LASTEXITCODE
}
$run = Start-Process $Program -ArgumentList $Arguments -WorkingDirectory $Folder -Wait -PassThru `
  -Credential ([pscredential]::new($name, $secret)) -LoadUserProfile -RedirectStandardOutput $Log
exit $run.ExitCode
