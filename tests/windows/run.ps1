<#
Runs the test programs on a real Windows, as the present user and as a second, ordinary one. Not yet
run. Only for a machine that nobody will miss: the tests change the user's profile and registry, and
the second user is made for them.

What only a real Windows shows is in these same programs, where they skip under Wine: junctions and
symbolic links, elevation, round trips of owner and access list.
#>
param(
  [Parameter(Mandatory)] [string] $Build,
  [Parameter(Mandatory)] [string] $Tests
)
$ErrorActionPreference = 'Stop'
$project = (Resolve-Path "$PSScriptRoot/../..").Path
$program = Get-ChildItem $Build -Recurse -Filter Kestrune.exe | Where-Object FullName -NotMatch '\\stage\\' | Select-Object -First 1
$results = New-Item -ItemType Directory -Force "$project/build/test-results"
$env:KESTRUNE_EXE = $program.FullName
$env:KESTRUNE_DISPOSABLE_PROFILE = '1'
# Apart from UTC, or no test could tell which of the two a time was taken from.
Set-TimeZone -Id 'Nepal Standard Time'
$failed = 0

function Find-Program([string] $name) {
  $found = Get-ChildItem $Tests -Recurse -Filter "$name.exe" | Select-Object -First 1
  if (-not $found) { throw "$name.exe was not built" }
  $found.FullName
}

foreach ($name in 'unit_tests', 'windows_tests', 'system_tests') {
  Write-Output "== $name"
  & (Find-Program $name) "--gtest_output=xml:$results\$name.xml" | Out-Default
  if ($LASTEXITCODE -ne 0) { $failed++ }
}

# A second user: his own profile, registry and rights, and none of an administrator's. Junctions need
# no right, symbolic links and programs that demand elevation behave differently for him.
$name = 'kestrune-test'
$password = [Guid]::NewGuid().ToString() + 'aA1!'
$secret = ConvertTo-SecureString $password -AsPlainText -Force
New-LocalUser $name -Password $secret -PasswordNeverExpires | Out-Null
Add-LocalGroupMember -Group Users -Member $name -ErrorAction SilentlyContinue
try {
  $open = New-Item -ItemType Directory -Force 'C:\kestrune-second-user'
  icacls $open.FullName /grant "${name}:(OI)(CI)M" | Out-Null
  Copy-Item $program.FullName $open
  Copy-Item (Find-Program 'windows_tests') $open
  Copy-Item (Find-Program 'system_tests') $open
  Get-ChildItem $Tests -Recurse -Filter *.exe | Where-Object FullName -Match '\\programs\\' |
    Copy-Item -Destination $open
  $credential = [pscredential]::new($name, $secret)
  foreach ($test in 'windows_tests', 'system_tests') {
    Write-Output "== $test as a second user"
    $line = "set KESTRUNE_DISPOSABLE_PROFILE=1&& set KESTRUNE_EXE=$open\Kestrune.exe&& " +
      "$open\$test.exe --gtest_output=xml:$open\second-user-$test.xml > $open\$test.log 2>&1"
    $run = Start-Process cmd.exe -ArgumentList '/d', '/c', $line -Credential $credential -LoadUserProfile `
      -WorkingDirectory $open -Wait -PassThru
    Get-Content "$open\$test.log"
    if ($run.ExitCode -ne 0) { $failed++ }
  }
  Copy-Item "$open\*.xml" $results
} finally {
  Remove-LocalUser $name
}

if ($failed -ne 0) { throw "$failed test programs failed" }
