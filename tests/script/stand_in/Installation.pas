unit Installation;
{$mode delphi}{$H+}
// Finds the user's folders in the prefix, and reads what the installer wrote into a host.

interface

// Returns the user's local application data, as a path of Windows.
function LocalAppData: string;

// Returns the script project that the toolbar button in this customization file names.
function ProjectOfButton(const CustomizationFile: string): string;

// Returns the content of a file of the prefix; empty when it is not there.
function Contents(const Path: string): string;

// Returns the content of a file of this machine.
function FileOfMachine(const Path: string): string;

implementation

uses SysUtils, StrUtils, Classes, HostFiles;

function LocalAppData: string;
var
  Entry: TSearchRec;
begin
  Result := '';
  if FindFirst(UnixPath('C:\users\*'), faDirectory, Entry) = 0 then
  begin
    repeat
      if (Entry.Name[1] <> '.') and (Entry.Name <> 'Public') and (Pos(' ', Entry.Name) = 0) then
        Result := 'C:\users\' + Entry.Name + '\AppData\Local';
    until FindNext(Entry) <> 0;
    FindClose(Entry);
  end;
  if Result = '' then raise Exception.Create('no user in the prefix');
end;

function ProjectOfButton(const CustomizationFile: string): string;
var
  Text: string;
begin
  Text := Contents(CustomizationFile);
  // The file may hold buttons of other projects before ours.
  Result := Copy(Text, 1, Pos('|ProcName=Kestrune.pas>RunKestrune', Text) - 1);
  Result := Copy(Result, RPos('ProjectName=', Result) + 12, Length(Result));
end;

function Contents(const Path: string): string;
begin
  Result := '';
  if HostFiles.FileExists(Path) then Result := ReadBytes(Path);
end;

function FileOfMachine(const Path: string): string;
var
  Stream: TFileStream;
begin
  Stream := TFileStream.Create(Path, fmOpenRead or fmShareDenyNone);
  SetLength(Result, Stream.Size);
  if Result <> '' then Stream.ReadBuffer(Result[1], Length(Result));
  Stream.Free;
end;

end.
