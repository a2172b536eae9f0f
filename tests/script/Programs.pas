unit Programs;
{$mode delphi}{$H+}
// Starts of Kestrune.exe: the real one under Wine, or answers made up here for what the real one
// cannot be brought to do on this machine (a full disk, a missing profile, silence).

interface

uses Classes, Contnrs;

type
  // OnlyPrepare: the preparation is real, waiting succeeds at once, the rest is not started.
  TAnswers = (Real, OnlyPrepare, Silent, CannotStart, Failing);
  TBeforeStart = procedure(const Arguments: TStrings);

var
  Answers: TAnswers;
  LogLine: string;          // what a failing preparation leaves in the log; may be empty
  WaitAnswer: string;       // what the wait for the archive answers instead of the real one
  BeforeStart: TBeforeStart;
  StartScript: string;

procedure ResetPrograms;
function Start(const CommandLine: string): Integer;
function AnyRuns: Boolean;
function WaitForAll: Boolean;
procedure SplitCommandLine(const CommandLine: string; Arguments: TStrings);

var
  LogPath: string;

implementation

uses SysUtils, Process, HostFiles;

var
  Running: TObjectList;

procedure ResetPrograms;
begin
  WaitForAll;
  Answers := Real;
  LogLine := '';
  WaitAnswer := '';
  BeforeStart := nil;
end;

// No argument of ours holds a quote or ends in a backslash.
procedure SplitCommandLine(const CommandLine: string; Arguments: TStrings);
var
  I: Integer;
  Quoted: Boolean;
  One: string;
begin
  One := '';
  Quoted := False;
  for I := 1 to Length(CommandLine) + 1 do
    if (I > Length(CommandLine)) or ((CommandLine[I] = ' ') and not Quoted) then
    begin
      if One <> '' then Arguments.Add(One);
      One := '';
    end
    else if CommandLine[I] = '"' then Quoted := not Quoted
    else One := One + CommandLine[I];
end;

procedure StartReal(const Arguments: TStrings);
var
  Child: TProcess;
begin
  Child := TProcess.Create(nil);
  Child.Executable := StartScript;
  Child.Parameters.AddStrings(Arguments);
  Child.Options := [];
  Child.Execute;
  Running.Add(Child);
end;

procedure Fail(const Arguments: TStrings);
begin
  if Arguments[1] <> '--prepare' then Exit;
  if LogLine <> '' then
    if FileExists(LogPath) then WriteBytes(LogPath, ReadBytes(LogPath) + LogLine + #13#10)
    else WriteBytes(LogPath, LogLine + #13#10);
  WriteBytes(Arguments[5], 'ERROR'#13#10);
end;

procedure Answer(const Arguments: TStrings);
begin
  if (Arguments[1] = '--wait-native') and (WaitAnswer <> '') then WriteBytes(Arguments[4], WaitAnswer)
  else if Answers = Real then StartReal(Arguments)
  else if Answers = Failing then Fail(Arguments)
  else if Answers = OnlyPrepare then
    if Arguments[1] = '--prepare' then StartReal(Arguments)
    else if Arguments[1] = '--wait-native' then WriteBytes(Arguments[4], 'OK'#13#10'5');
end;

function Start(const CommandLine: string): Integer;
var
  Arguments: TStringList;
begin
  Result := 0;
  if Answers = CannotStart then
  begin
    Result := 5;
    Exit;
  end;
  Arguments := TStringList.Create;
  SplitCommandLine(CommandLine, Arguments);
  if Assigned(BeforeStart) then BeforeStart(Arguments);
  Answer(Arguments);
  Arguments.Free;
end;

function AnyRuns: Boolean;
var
  I: Integer;
begin
  for I := Running.Count - 1 downto 0 do
    if not TProcess(Running[I]).Running then Running.Delete(I);
  Result := Running.Count > 0;
end;

function WaitForAll: Boolean;
var
  Turn: Integer;
begin
  Turn := 0;
  while AnyRuns and (Turn < 1500) do
  begin
    SysUtils.Sleep(100);
    Inc(Turn);
  end;
  Result := not AnyRuns;
end;

initialization
  Running := TObjectList.Create(True);
end.
