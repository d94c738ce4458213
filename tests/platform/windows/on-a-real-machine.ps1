# What Wine cannot show, on a Windows machine: access lists as NTFS keeps them, links, junctions, and a file whose
# deletion waits. It makes and removes the folders "Corvane" of the program data and the common program files, and so
# refuses to run where they are in use.
# usage, as an administrator, in a folder with kr_platform_tests.exe and OpenSSL's two DLLs:
#   powershell -ExecutionPolicy Bypass -File on-a-real-machine.ps1
$ErrorActionPreference = 'Stop'
$data = Join-Path $env:ProgramData 'Corvane'
$logging = Join-Path $data 'Logging'
$log = Join-Path $logging 'krOpenSSL.log'
$elsewhere = Join-Path $env:TEMP 'krElsewhere'
$failures = 0

function Check([string]$what, [bool]$holds) {
  if (-not $holds) { $script:failures++ }
  Write-Output ('{0,-6} {1}' -f $(if ($holds) { 'ok' } else { 'FAILED' }), $what)
}

function Start-Fresh {
  Remove-Item -Recurse -Force $data, $elsewhere -ErrorAction SilentlyContinue
  New-Item -ItemType Directory -Force $logging, $elsewhere | Out-Null
}

# Each line from a process of its own, as the path is resolved once in a process.
function Write-Line {
  & .\kr_platform_tests.exe --gtest_also_run_disabled_tests --gtest_filter=Log.DISABLED_WritesALine | Out-Null
  return $LASTEXITCODE -eq 0
}

# Owner and entries in their order, without those that the folder above has given.
function Get-Access([string]$path) {
  $acl = Get-Acl $path
  $own = $acl.GetAccessRules($true, $false, [Security.Principal.SecurityIdentifier]) |
    ForEach-Object { "$($_.AccessControlType) $($_.IdentityReference) $($_.FileSystemRights)" }
  return (@($acl.GetOwner([Security.Principal.SecurityIdentifier]).Value) + $own) -join '; '
}

$protected = 'S-1-5-32-544; Allow S-1-5-18 FullControl; Allow S-1-5-32-544 FullControl; Allow S-1-1-0 Read, Synchronize'

foreach ($folder in $data, (Join-Path ${env:CommonProgramFiles(x86)} 'Corvane')) {
  if (Test-Path $folder) { throw "$folder is in use" }
}
Write-Output "Windows $([Environment]::OSVersion.Version), code page $([Text.Encoding]::Default.CodePage)"

# The tests that Wine skips, among the others of their kinds, each in a process of its own: none is skipped here.
foreach ($test in & .\kr_platform_tests.exe --gtest_list_tests '--gtest_filter=-Dll.*:Modules.*:*.DISABLED_*') {
  if ($test -match '^\S+\.$') { $suite = $test; continue }
  $name = $suite + $test.Trim()
  $output = & .\kr_platform_tests.exe "--gtest_filter=$name"
  Check $name (($LASTEXITCODE -eq 0) -and -not ($output -match 'SKIPPED'))
}

Start-Fresh
Remove-Item $logging
New-Item -ItemType Junction -Path $logging -Target $elsewhere | Out-Null
Check 'a line is written where a junction stood for the folder' ((Write-Line) -and (Test-Path $log))
Check 'the folder is one, and no junction' (-not ((Get-Item $logging).Attributes -band [IO.FileAttributes]::ReparsePoint))
Check 'nothing is where the junction led' (-not (Get-ChildItem $elsewhere))
Check "the folder has owner and access list in order: $(Get-Access $logging)" ((Get-Access $logging) -eq $protected)

Start-Fresh
New-Item -ItemType SymbolicLink -Path $log -Target (Join-Path $elsewhere 'none') | Out-Null
Check 'a line is written where a link that leads nowhere stood for the file' (Write-Line)
Check 'nothing is where it led' (-not (Get-ChildItem $elsewhere))

Start-Fresh
Set-Content $log 'before'
$held = [IO.File]::Open($log, 'Open', 'Read', [IO.FileShare]'ReadWrite, Delete')
Remove-Item $log
Check 'a line while the deletion of the file waits ends nothing' (Write-Line)
$held.Close()
Check 'the next one is written' ((Write-Line) -and (Select-String -Quiet 'line' $log))

Remove-Item -Recurse -Force $data, $elsewhere -ErrorAction SilentlyContinue
Write-Output $(if ($failures) { "$failures failed" } else { 'all is well' })
exit [int]($failures -ne 0)
