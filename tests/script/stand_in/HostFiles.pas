unit HostFiles;
{$mode delphi}{$H+}
// Accesses the files of the host's Windows from this Linux program: drive letters and network shares are mapped into
// the Wine prefix, text files are read and written in code page 1252, as the host's script engine does, and a file
// that is open cannot be deleted. An error while a file is
// created stops the interpreter in hosts that are known to do so.

interface

uses Classes;

type
  TStringList = class(Classes.TStringList)
  public
    constructor Create;
    destructor Destroy; override;
    procedure LoadFromFile(const FileName: string); override;
    procedure SaveToFile(const FileName: string); override;
  end;

  // Only what the script reads of it.
  TIniFile = class
  private
    Lines: Classes.TStringList;
  public
    constructor Create(const FileName: string);
    destructor Destroy; override;
    function ReadString(const Section, Key, Default: string): string;
  end;

  TextFile = record
    Path: string;
    Open: Boolean;
  end;

var
  Prefix: string;          // the Wine prefix
  DiskIsFull: Boolean;     // every write fails
  OpenLists: Integer;      // string lists that the script has not freed
  OpenFiles: Classes.TStringList;
  OnDelete: procedure(const Path: string);
  OnFileError: procedure(const Where: string);   // a file cannot be created; may not return
  OpenFilesAreRead, OpenFilesAreWritten: Boolean;   // by others than the one that opened them to write
  OverwritingFails: Boolean;   // a file that exists cannot be created anew
  Forbidden: string;       // no file whose path begins with this can be created
  Locked: string;          // the file that another program has open alone ...
  LockedReads: Integer;    // ... for so many attempts to read it

const
  faAnyFile = 63;

function UnixPath(const Path: string): string;
function FileExists(const Path: string): Boolean;
function DeleteFile(const Path: string): Boolean;
function DirectoryExists(const Path: string): Boolean;
function ForceDirectories(const Path: string): Boolean;
function FileAge(const Path: string): Integer;
procedure FindFiles(const Folder, Pattern: string; Attributes: Integer; Recursive: Boolean;
  List: Classes.TStrings);
procedure MakeYounger(const Path: string);
procedure AssignFile(var F: TextFile; const Path: string);
procedure Rewrite(var F: TextFile);
procedure Reset(var F: TextFile);
procedure Append(var F: TextFile);
procedure CloseFile(var F: TextFile);

function ReadBytes(const Path: string): string;
procedure WriteBytes(const Path, Bytes: string);
function AnsiToUtf8Text(const Bytes: string): string;
function Utf8ToAnsiText(const Text: string): string;
procedure RemoveTree(const Path: string);
function FilesIn(const Folder: string): string;

implementation

uses SysUtils;

const
  High: array[$80..$9F] of Word = (
    $20AC, $81, $201A, $0192, $201E, $2026, $2020, $2021, $02C6, $2030, $0160, $2039, $0152, $8D,
    $017D, $8F, $90, $2018, $2019, $201C, $201D, $2022, $2013, $2014, $02DC, $2122, $0161, $203A,
    $0153, $9D, $017E, $0178);

function UnixPath(const Path: string): string;
var
  Slashed: string;
begin
  Slashed := StringReplace(Path, '\', '/', [rfReplaceAll]);
  if Copy(Slashed, 1, 2) = '//' then
    Result := Prefix + '/dosdevices/unc/' + Copy(Slashed, 3, Length(Slashed))
  else if (Length(Slashed) > 1) and (Slashed[2] = ':') then
    Result := Prefix + '/dosdevices/' + LowerCase(Slashed[1]) + ':' + Copy(Slashed, 3, Length(Slashed))
  else
    Result := '/nowhere/' + Slashed;
end;

function FileExists(const Path: string): Boolean;
begin
  Result := SysUtils.FileExists(UnixPath(Path)) and not SysUtils.DirectoryExists(UnixPath(Path));
end;

function DirectoryExists(const Path: string): Boolean;
begin
  Result := SysUtils.DirectoryExists(UnixPath(Path));
end;

function FileAge(const Path: string): Integer;
begin
  Result := SysUtils.FileAge(UnixPath(Path)) div 2;
end;

procedure MakeYounger(const Path: string);
begin
  SysUtils.FileSetDate(UnixPath(Path), SysUtils.FileAge(UnixPath(Path)) + 2);
end;

function Fits(const Name, Pattern: string): Boolean;
begin
  if Pattern = '' then Result := Name = ''
  else if Pattern[1] = '*' then
    Result := Fits(Name, Copy(Pattern, 2, Length(Pattern)))
      or ((Name <> '') and Fits(Copy(Name, 2, Length(Name)), Pattern))
  else Result := (Name <> '') and (UpCase(Name[1]) = UpCase(Pattern[1]))
    and Fits(Copy(Name, 2, Length(Name)), Copy(Pattern, 2, Length(Pattern)));
end;

// Some hosts return names in capitals; this one keeps their case.
procedure FindFiles(const Folder, Pattern: string; Attributes: Integer; Recursive: Boolean;
  List: Classes.TStrings);
var
  Entry: TSearchRec;
begin
  if SysUtils.FindFirst(UnixPath(Folder) + '/*', 63, Entry) <> 0 then Exit;
  repeat
    if (Entry.Name = '.') or (Entry.Name = '..') then Continue;
    if (Entry.Attr and faDirectory) = 0 then
    begin
      if (Pattern = '*.*') or Fits(Entry.Name, Pattern) then List.Add(Folder + '\' + Entry.Name);
    end
    else if Recursive then FindFiles(Folder + '\' + Entry.Name, Pattern, Attributes, True, List);
  until FindNext(Entry) <> 0;
  FindClose(Entry);
end;

function DeleteFile(const Path: string): Boolean;
begin
  if Assigned(OnDelete) then OnDelete(Path);
  Result := (OpenFiles.IndexOf(Path) < 0) and SysUtils.DeleteFile(UnixPath(Path));
end;

function ForceDirectories(const Path: string): Boolean;
begin
  Result := (not DiskIsFull) and SysUtils.ForceDirectories(UnixPath(Path));
end;

procedure AssignFile(var F: TextFile; const Path: string);
begin
  F.Path := Path;
  F.Open := False;
end;

procedure Rewrite(var F: TextFile);
begin
  if DiskIsFull or (OverwritingFails and FileExists(F.Path)) or (OpenFiles.IndexOf(F.Path) >= 0)
    or not SysUtils.DirectoryExists(ExtractFileDir(UnixPath(F.Path))) then
    if Assigned(OnFileError) then OnFileError('Rewrite');
  WriteBytes(F.Path, '');
  OpenFiles.Add(F.Path);
  F.Open := True;
end;

procedure Reset(var F: TextFile);
begin
  if not FileExists(F.Path) then
    if Assigned(OnFileError) then OnFileError('Reset');
  F.Open := True;
end;

procedure Append(var F: TextFile);
begin
  if not FileExists(F.Path) or ((OpenFiles.IndexOf(F.Path) >= 0) and not OpenFilesAreWritten) then
    if Assigned(OnFileError) then OnFileError('Append');
  OpenFiles.Add(F.Path);
  F.Open := True;
end;

procedure CloseFile(var F: TextFile);
begin
  if not F.Open then raise EInOutError.Create('file not open');
  F.Open := False;
  OpenFiles.Delete(OpenFiles.IndexOf(F.Path));
end;

function ReadBytes(const Path: string): string;
var
  Stream: TFileStream;
begin
  Stream := TFileStream.Create(UnixPath(Path), fmOpenRead or fmShareDenyNone);
  try
    SetLength(Result, Stream.Size);
    if Result <> '' then Stream.ReadBuffer(Result[1], Length(Result));
  finally
    Stream.Free;
  end;
end;

procedure WriteBytes(const Path, Bytes: string);
var
  Stream: TFileStream;
begin
  if DiskIsFull then raise EInOutError.Create('disk full');
  SysUtils.ForceDirectories(ExtractFileDir(UnixPath(Path)));
  Stream := TFileStream.Create(UnixPath(Path), fmCreate);
  try
    if Bytes <> '' then Stream.WriteBuffer(Bytes[1], Length(Bytes));
  finally
    Stream.Free;
  end;
end;

function AnsiToUtf8Text(const Bytes: string): string;
var
  Wide: UnicodeString;
  I: Integer;
begin
  SetLength(Wide, Length(Bytes));
  for I := 1 to Length(Bytes) do
    if (Ord(Bytes[I]) >= $80) and (Ord(Bytes[I]) <= $9F) then Wide[I] := WideChar(High[Ord(Bytes[I])])
    else Wide[I] := WideChar(Ord(Bytes[I]));
  Result := UTF8Encode(Wide);
end;

function Utf8ToAnsiText(const Text: string): string;
var
  Wide: UnicodeString;
  I, J: Integer;
  One: Char;
begin
  Wide := UTF8Decode(Text);
  SetLength(Result, Length(Wide));
  for I := 1 to Length(Wide) do
  begin
    One := '?';
    if (Ord(Wide[I]) < $80) or ((Ord(Wide[I]) >= $A0) and (Ord(Wide[I]) <= $FF)) then
      One := Chr(Ord(Wide[I]));
    for J := $80 to $9F do
      if Ord(Wide[I]) = High[J] then One := Chr(J);
    Result[I] := One;
  end;
end;

procedure RemoveTree(const Path: string);
var
  Entry: TSearchRec;
begin
  if FindFirst(UnixPath(Path) + '/*', faAnyFile, Entry) = 0 then
  begin
    repeat
      if (Entry.Name = '.') or (Entry.Name = '..') then Continue;
      if (Entry.Attr and faDirectory) <> 0 then RemoveTree(Path + '\' + Entry.Name)
      else SysUtils.DeleteFile(UnixPath(Path + '\' + Entry.Name));
    until FindNext(Entry) <> 0;
    FindClose(Entry);
  end;
  RemoveDir(UnixPath(Path));
end;

// Returns the paths of a folder's files, a line for each.
function FilesIn(const Folder: string): string;
var
  Found: Classes.TStringList;
begin
  Found := Classes.TStringList.Create;
  FindFiles(Folder, '*', faAnyFile, False, Found);
  Result := Found.Text;
  Found.Free;
end;

constructor TStringList.Create;
begin
  inherited Create;
  Inc(OpenLists);
end;

destructor TStringList.Destroy;
begin
  Dec(OpenLists);
  inherited Destroy;
end;

procedure TStringList.LoadFromFile(const FileName: string);
begin
  if not FileExists(FileName) then raise EFOpenError.Create('Cannot open file ' + FileName);
  if (OpenFiles.IndexOf(FileName) >= 0) and not OpenFilesAreRead then
    raise EFOpenError.Create('Cannot open file ' + FileName);
  if (FileName = Locked) and (LockedReads > 0) then
  begin
    Dec(LockedReads);
    raise EFOpenError.Create('Cannot open file ' + FileName);
  end;
  Text := AnsiToUtf8Text(ReadBytes(FileName));
end;

procedure TStringList.SaveToFile(const FileName: string);
var
  I: Integer;
  Bytes: string;
begin
  if DiskIsFull or (OverwritingFails and FileExists(FileName)) or not SysUtils.DirectoryExists(ExtractFileDir(UnixPath(FileName))) or ((Forbidden <> '') and (Pos(Forbidden, FileName) = 1)) then
    if Assigned(OnFileError) then OnFileError('TStringList.SaveToFile');
  Bytes := '';
  for I := 0 to Count - 1 do Bytes := Bytes + Strings[I] + #13#10;
  WriteBytes(FileName, Utf8ToAnsiText(Bytes));
end;

// Windows reads such a file as UTF-16 when it has that mark, otherwise in the code page.
constructor TIniFile.Create(const FileName: string);
var
  Bytes: string;
  Wide: UnicodeString;
begin
  Bytes := ReadBytes(FileName);
  if Copy(Bytes, 1, 2) = #$FF#$FE then
  begin
    SetLength(Wide, (Length(Bytes) - 2) div 2);
    if Wide <> '' then Move(Bytes[3], Wide[1], Length(Wide) * 2);
    Bytes := UTF8Encode(Wide);
  end
  else Bytes := AnsiToUtf8Text(Bytes);
  Lines := Classes.TStringList.Create;
  Lines.Text := Bytes;
  Inc(OpenLists);
end;

destructor TIniFile.Destroy;
begin
  Dec(OpenLists);
  Lines.Free;
  inherited Destroy;
end;

function TIniFile.ReadString(const Section, Key, Default: string): string;
var
  I: Integer;
  Inside: Boolean;
begin
  Result := Default;
  Inside := False;
  for I := Lines.Count - 1 downto 0 do
    if SameText(Trim(Lines[I]), '[' + Section + ']') then Inside := True;
  if not Inside then Exit;
  Inside := False;
  for I := 0 to Lines.Count - 1 do
    if Copy(Trim(Lines[I]), 1, 1) = '[' then Inside := SameText(Trim(Lines[I]), '[' + Section + ']')
    else if Inside and (Pos('=', Lines[I]) > 0)
      and SameText(Trim(Copy(Lines[I], 1, Pos('=', Lines[I]) - 1)), Key) then
      Result := Trim(Copy(Lines[I], Pos('=', Lines[I]) + 1, Length(Lines[I])));
end;

initialization
  OpenFiles := Classes.TStringList.Create;
end.
