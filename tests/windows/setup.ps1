<#
Starts the setup program on a real Windows without an Altium Designer: it must answer 20 and leave
nothing, also as an altered file. Not yet run. The whole behaviour is tested in tests/setup/run.
#>
param([Parameter(Mandatory)] [string] $Folder)
$ErrorActionPreference = 'Stop'
$setup = Get-ChildItem $Folder -Filter 'Kestrune-*-setup.exe' | Select-Object -First 1
$entry = 'HKCU:\Software\Microsoft\Windows\CurrentVersion\Uninstall\Kestrune'

function Assert([bool] $condition, [string] $text) {
  if (-not $condition) { throw "not so: $text" }
  Write-Output "ok: $text"
}

$run = Start-Process $setup.FullName '/S' -Wait -PassThru
Assert ($run.ExitCode -eq 20) "without a host it answers 20 (answered $($run.ExitCode))"
Assert (-not (Test-Path "$env:LOCALAPPDATA\Programs\Kestrune*")) 'it leaves no folder'
Assert (-not (Test-Path $entry)) 'it leaves no entry under Apps'

$bytes = [IO.File]::ReadAllBytes($setup.FullName)
$bytes[$bytes.Length - 5000] = $bytes[$bytes.Length - 5000] -bxor 1
$altered = Join-Path $env:TEMP 'Kestrune-altered.exe'
[IO.File]::WriteAllBytes($altered, $bytes)
$run = Start-Process $altered '/S' -Wait -PassThru
Assert ($run.ExitCode -eq 2) "an altered file is refused with 2 (answered $($run.ExitCode))"

$folder = (Resolve-Path $Folder).Path
foreach ($line in Get-Content "$folder\SHA256SUMS") {
  $sum, $name = $line -split '  ', 2
  Assert ((Get-FileHash "$folder\$name").Hash -eq $sum) "$name agrees with the sums"
}
