unit Programs;
{$mode delphi}{$H+}
// Starts Kestrune.exe: the real one under Wine, or a simulated one, for conditions that cannot be produced with the
// real one on this machine (a full disk, a missing profile, no status file) and for tests that run hundreds of
// exports.

interface

uses Classes;

type
  // OnlyPrepare: the preparation is real, waiting succeeds at once, a delivery only logs its end.
  // Simulated: preparation, wait and delivery are carried out in this process, with the results of the real ones.
  TAnswers = (Real, OnlyPrepare, Simulated, Silent, CannotStart, Failing);
  TBeforeStart = procedure(const Arguments: TStrings);

var
  Answers: TAnswers;
  LogLine: string;          // the log entry of a failing preparation; may be empty
  InspectAnswer: string;    // the list of layers instead of the real one
  WaitAnswer: string;       // the result of the wait for the archive instead of the real one
  BeforeStart: TBeforeStart;
  SlowPrepare: Boolean;     // a simulated preparation ends only with FinishPreparation
  SlowDelivery: Boolean;    // a delivery logs its end only with FinishDelivery
  Deliveries: Classes.TStringList;   // of simulated ones: the name of the ZIP, '=' and its content
  // of real ones: the mode, ' ended with ' and the exit code, in the order of their ends
  Ends: Classes.TStringList;
  ProgramBoxes: Classes.TStringList; // what boxes of real ones said: the icon's style word, ': ' and the text
  OnProgramBox: procedure;           // called while the last one of them is shown

procedure ResetPrograms;
function Start(const CommandLine: string): Integer;
function AnyRuns: Boolean;
function WaitForAll: Boolean;
procedure FinishPreparation;
procedure FinishDelivery;

var
  LogPath, RuntimeFolder, TempFolderOfProgram: string;

implementation

uses SysUtils, HostServer, HostFiles, HostStandIn, Archives;

var
  Running: Classes.TStringList;      // the ids of started programs, '=' and the mode
  LastId: Integer;
  Waiting: Classes.TStringList;      // the arguments of a slow preparation

procedure ResetPrograms;
begin
  WaitForAll;
  Answers := Real;
  LogLine := '';
  WaitAnswer := '';
  InspectAnswer := '';
  BeforeStart := nil;
  SlowPrepare := False;
  SlowDelivery := False;
  Waiting := nil;
  Deliveries.Clear;
  Ends.Clear;
  ProgramBoxes.Clear;
  OnProgramBox := nil;
end;

// Requires an argument without quotes that does not end in a backslash.
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

// Closes the box, as the user does who has read it.
procedure NoteProgram(const Id: string; const Event: Classes.TStrings);
begin
  if Event[0] = 'box' then
  begin
    ProgramBoxes.Add(Event[1] + ': ' + Event[2]);
    if Assigned(OnProgramBox) then OnProgramBox;
    Tell(['dismiss', Id]);
  end
  else
  begin
    Ends.Add(Running.Values[Id] + ' ended with ' + Event[1]);
    Running.Delete(Running.IndexOfName(Id));
  end;
end;

// Returns the Windows error, as the host does.
function StartReal(const CommandLine, Mode: string): Integer;
var
  Answer: Classes.TStringList;
begin
  Inc(LastId);
  Answer := Ask(['start', IntToStr(LastId), CommandLine], 'started');
  Result := StrToInt(Answer[1]);
  if Result = 0 then Running.Add(Answer[0] + '=' + Mode);
  Answer.Free;
end;

procedure AddToLog(const Line: string);
var
  Old: string;
begin
  Old := '';
  if FileExists(LogPath) then Old := ReadBytes(LogPath);
  WriteBytes(LogPath, Old + Line + #13#10);
end;

procedure Log(const Stage: string);
begin
  AddToLog('[2026-3-7 9:5:2] Stage: ' + Stage);
end;

function LinesOf(const Path: string): Classes.TStringList;
begin
  Result := Classes.TStringList.Create;
  if FileExists(Path) then Result.Text := AnsiToUtf8Text(ReadBytes(Path));
end;

// Selects layers in a naive way: a field is on when the manifest names it.
function SelectLayers(const Job: string; Manifest: Classes.TStrings): string;
var
  Lines, Fields: Classes.TStringList;
  I, J: Integer;
  Key: string;
begin
  Lines := Classes.TStringList.Create;
  Lines.Text := Job;
  for I := 0 to Lines.Count - 1 do
    if Pos('Configuration1_Item1=', Lines[I]) = 1 then
    begin
      Fields := Classes.TStringList.Create;
      Fields.StrictDelimiter := True;
      Fields.Delimiter := '|';
      Fields.QuoteChar := #1;
      Fields.DelimitedText := Copy(Lines[I], 22, Length(Lines[I]));
      for J := 0 to Fields.Count - 1 do
      begin
        Key := Fields.Names[J];
        if (Pos('Plot_V7_', Key) = 1) and (Fields.IndexOfName(Key + '_name') >= 0) then
          Fields[J] := Key + '=' + BoolToStr(
            Manifest.IndexOf('LayerName=' + Fields.Values[Key + '_name']) >= 0, 'True', 'False')
        else if (Pos('Plot', Key) = 1) and (Copy(Key, Length(Key) - 3, 4) = 'Plot') then
          Fields[J] := Key + '=' + BoolToStr(Manifest.IndexOf('PlotKey=' + Key) >= 0, 'True', 'False');
      end;
      Lines[I] := 'Configuration1_Item1=' + Fields.DelimitedText;
      Fields.Free;
    end;
  Result := Lines.Text;
  Lines.Free;
end;

procedure SimulatePrepare(const Arguments: TStrings);
var
  Children, Manifest: Classes.TStringList;
  Project: string;
  I: Integer;
begin
  Children := LinesOf(Arguments[3]);
  Manifest := LinesOf(Arguments[4]);
  HostFiles.RemoveTree(TempFolderOfProgram);
  WriteBytes(TempFolderOfProgram + '\Bridge.PcbDoc', ReadBytes(Arguments[2]));
  WriteBytes(TempFolderOfProgram + '\Bridge.OutJob',
    SelectLayers(ReadBytes(RuntimeFolder + '\Bridge.OutJob'), Manifest));
  Project := 'DocumentPath=Bridge.PcbDoc'#13#10'DocumentPath=Bridge.OutJob'#13#10;
  for I := 0 to Children.Count - 1 do
  begin
    WriteBytes(TempFolderOfProgram + '\' + ExtractFileName(Children[I]), ReadBytes(Children[I]));
    Project := Project + 'DocumentPath=' + ExtractFileName(Children[I]) + #13#10;
  end;
  WriteBytes(TempFolderOfProgram + '\Bridge.PrjPcb', Project);
  WriteBytes(TempFolderOfProgram + '\ready.txt', Utf8ToAnsiText(Arguments[2]));
  Log('Prepare complete');
  WriteBytes(Arguments[5], 'OK'#13#10);
  Children.Free;
  Manifest.Free;
end;

procedure FinishPreparation;
begin
  if Waiting <> nil then SimulatePrepare(Waiting);
  Waiting := nil;
end;

procedure FinishDelivery;
begin
  Log('Finalize copied | Destination=x Size=1');
end;

procedure SimulateDelivery(const Arguments: TStrings);
var
  Name, Path: string;
begin
  Name := ChangeFileExt(ExtractFileName(Arguments[2]), '');
  Path := TempFolderOfProgram + '\Project Outputs for Bridge\ODB\Bridge.zip';
  if not FileExists(Path) then Log('Finalize failed | NativeExists=no')
  else
  begin
    Deliveries.Add(Name + '=' + StringReplace(ReadBytes(Path), #10, '/', [rfReplaceAll]));
    if not SlowDelivery then FinishDelivery;
  end;
end;

// Writes the list of an archive's layers, of the real or the simulated program.
procedure SimulateInspection(const Arguments: TStrings);
var
  Problem: string;
begin
  Problem := '';
  if not FileExists(Arguments[2]) then Problem := 'The archive does not exist.';
  if (OpenFiles.IndexOf(Arguments[2]) >= 0) and not OpenFilesAreRead then
    Problem := 'The archive could not be opened.';
  if Problem = '' then WriteBytes(Arguments[3], ListOfLayers(ReadBytes(Arguments[2])))
  else WriteBytes(Arguments[3], 'VERSION=1'#13#10'ERROR=' + Problem + #13#10'END'#13#10);
end;

procedure Simulate(const Arguments: TStrings);
begin
  if (Arguments[1] = '--prepare') and SlowPrepare then
  begin
    Waiting := Classes.TStringList.Create;
    Waiting.AddStrings(Arguments);
  end
  else if Arguments[1] = '--prepare' then SimulatePrepare(Arguments)
  else if Arguments[1] = '--wait-native' then
  begin
    if FileExists(Arguments[2]) then WriteBytes(Arguments[4], 'OK'#13#10'5')
    else WriteBytes(Arguments[4], 'ERROR'#13#10);
  end
  else if Arguments[1] = '--inspect' then SimulateInspection(Arguments)
  else if Arguments[1] = '--finalize-auto' then SimulateDelivery(Arguments);
end;

procedure Fail(const Arguments: TStrings);
begin
  if Arguments[1] <> '--prepare' then Exit;
  if LogLine <> '' then AddToLog(LogLine);
  WriteBytes(Arguments[5], 'ERROR'#13#10);
end;

procedure MakeUp(const Arguments: TStrings);
begin
  if (Arguments[1] = '--wait-native') and (WaitAnswer <> '') then WriteBytes(Arguments[4], WaitAnswer)
  else if (Arguments[1] = '--inspect') and (InspectAnswer <> '') then WriteBytes(Arguments[3], InspectAnswer)
  else if Answers = Failing then Fail(Arguments)
  else if Answers = Simulated then Simulate(Arguments)
  else if Answers = OnlyPrepare then
    if Arguments[1] = '--wait-native' then WriteBytes(Arguments[4], 'OK'#13#10'5')
    else if Arguments[1] = '--inspect' then SimulateInspection(Arguments)
    else if (Arguments[1] = '--finalize-auto') and not SlowDelivery then FinishDelivery;
end;

function IsReal(const Mode: string): Boolean;
begin
  Result := (Answers = Real) or ((Answers = OnlyPrepare) and (Mode = '--prepare'));
  if (Mode = '--wait-native') and (WaitAnswer <> '') then Result := False;
  if (Mode = '--inspect') and (InspectAnswer <> '') then Result := False;
end;

function Start(const CommandLine: string): Integer;
var
  Arguments: TStringList;
begin
  Result := 5;
  if Answers = CannotStart then Exit;
  Result := 0;
  Arguments := TStringList.Create;
  SplitCommandLine(CommandLine, Arguments);
  if Assigned(BeforeStart) then BeforeStart(Arguments);
  if IsReal(Arguments[1]) then Result := StartReal(CommandLine, Arguments[1])
  else MakeUp(Arguments);
  Arguments.Free;
end;

function AnyRuns: Boolean;
begin
  if Running.Count > 0 then HandleProgramEvents(0);
  Result := Running.Count > 0;
end;

function WaitForAll: Boolean;
var
  Turn: Integer;
begin
  Turn := 0;
  while AnyRuns and (Turn < 1500) do
  begin
    HandleProgramEvents(100);
    Inc(Turn);
  end;
  Result := not AnyRuns;
end;

initialization
  Running := Classes.TStringList.Create;
  Deliveries := Classes.TStringList.Create;
  Ends := Classes.TStringList.Create;
  ProgramBoxes := Classes.TStringList.Create;
  OnProgramEvent := NoteProgram;
  StartProgram := Start;
  ProgramRuns := AnyRuns;
  LetProgramsRun := HandleProgramEvents;
end.
