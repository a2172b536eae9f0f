program script_tests;
{$mode delphi}{$H+}
// Whole exports of the package's script against the stand-in of the host, with the real Kestrune.exe
// wherever it can be brought to the behaviour in question.
//
// script_tests PREFIX PACKAGE PROGRAM RECEIVER START [FILTER]: the Wine prefix, the package folder, the
// built program, the program that plays the application which receives the archives, the script that
// starts a Windows program, and a part of the names of the tests to run.
//
// KESTRUNE_DEPLOYED names the host's customization file when the package was installed in the prefix:
// then the runtime stays as the installer left it, and a few exports run through its button.
// KESTRUNE_SMALL_DISK says that the temporary folder lies on a disk too small for a board.

uses
  cthreads, Classes, SysUtils, HostFiles, HostStandIn, ScriptUnderTest, Programs;

type
  TTest = procedure;

const
  Board1 = 'C:\Boards\Main board.PcbDoc';
  Board2 = 'C:\Boards\Second.PcbDoc';
  Temp = 'C:\users\Public\Documents\Kestrune\Temp';
  Archive = Temp + '\Project Outputs for Bridge\ODB\Bridge.zip';

var
  Package, ProgramFile, Receiver, Filter, TestName: string;
  Passed, Failed, Tests: Integer;
  TestFailed: Boolean;
  Local, Runtime, Exchange, Deployed, ReceiverFile: string;
  Steps: Classes.TStringList;
  CancelIn, PressIn, CloseIn: string;   // the step in which the user does that
  NoteSeen: string;

{ what a test needs }

procedure Check(Condition: Boolean; const Text: string);
begin
  if Condition then Exit;
  TestFailed := True;
  WriteLn('  ', TestName, ': ', Text);
end;

procedure CheckBox(const Part: string);
var
  Found: Boolean;
begin
  Found := False;
  if Boxes.Count = 1 then Found := Pos(Part, Boxes[0]) > 0;
  Check(Found, 'expected one box with "' + Part + '", got: ' + Boxes.Text);
end;

function Contents(const Path: string): string;
begin
  Result := '';
  if FileExists(Path) then Result := ReadBytes(Path);
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

// As the installer does it: verbatim, in the code page.
procedure PutScript(const Folder, RuntimeRoot: string);
var
  Text: string;
begin
  Text := FileOfMachine(Package + '/Script/Kestrune.pas');
  Text := StringReplace(Text, '@RUNTIME_ROOT@', Utf8ToAnsiText(RuntimeRoot), [rfReplaceAll]);
  Text := StringReplace(Text, '@TEMP_ROOT@', Temp, [rfReplaceAll]);
  WriteBytes(Folder + '\Kestrune.pas', Text);
end;

procedure PutRuntime(const Folder: string);
begin
  WriteBytes(Folder + '\Kestrune.exe', FileOfMachine(ProgramFile));
  WriteBytes(Folder + '\Bridge.OutJob', FileOfMachine(Package + '/Runtime/Bridge.OutJob'));
  PutScript(Folder, Folder);
end;

// A board that is open in the host and in front.
function NewBoard(const Path: string): IPCB_Board;
begin
  WriteBytes(Path, 'board ' + Path);
  Result := IPCB_Board.Create(Path);
  PCBServer.Front := Result;
  FrontDocument := Client.OpenDocument('PCB', Path);
end;

function Child(const Path: string): IPCB_Board;
begin
  WriteBytes(Path, 'board ' + Path);
  Result := IPCB_Board.Create(Path);
end;

procedure UserActs;
var
  Action: TCloseAction;
begin
  if Pos(CancelIn, KestruneWaitForm.StepLabel.Caption) = 1 then
  begin
    CancelIn := 'done';
    KestruneWaitForm.CancelButtonClick(nil);
  end;
  if Pos(CloseIn, KestruneWaitForm.StepLabel.Caption) = 1 then
  begin
    CloseIn := 'done';
    Action := caHide;
    KestruneWaitForm.KestruneWaitFormClose(nil, Action);
    KestruneWaitForm.Visible := False;
  end;
  if Pos(PressIn, KestruneWaitForm.StepLabel.Caption) = 1 then
  begin
    PressIn := 'done';
    RunKestrune;
    NoteSeen := KestruneWaitForm.NoteLabel.Caption;
  end;
end;

procedure Watch;
var
  Step: string;
begin
  Step := KestruneWaitForm.StepLabel.Caption;
  if KestruneWaitForm.Visible and (Steps.IndexOf(Step) < 0) then Steps.Add(Step);
  UserActs;
end;

procedure Press;
begin
  Steps.Clear;
  RunKestrune;
end;

procedure AddProject(const Path: string);
begin
  Projects.Add(IProject.Create(Path));
end;

// The project that the toolbar button names.
function ProjectOfButton: string;
var
  Text: string;
begin
  Text := Contents(Deployed);
  Result := Copy(Text, Pos('ProjectName=', Text) + 12, Length(Text));
  Result := Copy(Result, 1, Pos('|ProcName=Kestrune.pas>RunKestrune', Result) - 1);
end;

procedure InstallByHand;
begin
  HostFiles.RemoveTree(Local + '\Kestrune');
  PutRuntime(Runtime);
  WriteBytes(Runtime + '\Kestrune.PrjScr', FileOfMachine(Package + '/Script/Kestrune.PrjScr'));
  AddProject(Runtime + '\Kestrune.PrjScr');
end;

procedure Prepare;
begin
  ResetHost;
  ResetPrograms;
  HostFiles.RemoveTree('C:\Boards');
  HostFiles.RemoveTree(Temp);
  HostFiles.RemoveTree(Local + '\Kestrune\ODBpp');
  Runtime := Local + '\Kestrune\Runtime';
  Exchange := Local + '\Kestrune\Exchange';
  LogPath := Local + '\Kestrune\Logs\bridge.log';
  if Deployed = '' then InstallByHand
  else AddProject(ProjectOfButton);
  // An application takes the archive over, so that no box waits for a person. Each test has its own:
  // that of the test before may still be busy.
  Inc(Tests);
  ReceiverFile := Local + '\Kestrune\receiver' + IntToStr(Tests) + '.exe';
  WriteBytes(ReceiverFile, FileOfMachine(Receiver));
  WriteBytes(Local + '\Kestrune\settings.ini', '[Target]'#13#10'Enabled=1'#13#10'ExecutablePath='
    + ReceiverFile + #13#10'Arguments=/open "%ODBPP%"'#13#10);
  KestruneWaitForm.Free;
  KestruneWaitForm := TKestruneWaitForm.Create;
  OnMessages := Watch;
  StartProgram := Programs.Start;
  ProgramRuns := Programs.AnyRuns;
  Steps.Clear;
  CancelIn := 'never';
  PressIn := 'never';
  CloseIn := 'never';
  NoteSeen := '';
end;

// What holds after every press of the button, however it went.
procedure CheckTidy;
var
  I: Integer;
  Left: Classes.TStringList;
begin
  Check(not KestruneWaitForm.Visible, 'the wait window is still there');
  Check(Complaints.Count = 0, 'the host complained: ' + Complaints.Text);
  Check(OpenIterators = 0, 'iterators are left');
  Check(OpenLists = 0, IntToStr(OpenLists) + ' string lists are left');
  Check(OpenFiles.Count = 0, 'files are left open');
  for I := 0 to Documents.Count - 1 do
    Check(Pos(Temp, IServerDocument(Documents[I]).Path) <> 1,
      'still open: ' + IServerDocument(Documents[I]).Path);
  for I := 0 to Projects.Count - 1 do
    Check(Pos(Temp, IProject(Projects[I]).Path) <> 1, 'still open: ' + IProject(Projects[I]).Path);
  if (PCBServer.Front <> nil) and (Client.GetDocumentByPath(PCBServer.Front.FileName) <> nil) then
  begin
    if FrontDocument = nil then Check(False, 'no document is in front')
    else
    begin
      Check(FrontDocument.Path = PCBServer.Front.FileName, 'another document is in front');
      Check(FrontDocument.ModifiedWrites = 0, 'the mark of the user''s board was written');
    end;
  end;
  Left := Classes.TStringList.Create;
  ListFiles(Exchange, Left);
  for I := 0 to Left.Count - 1 do
    Check(Left[I] = 'journal.txt', 'left in the exchange folder: ' + Left[I]);
  Left.Free;
end;

procedure CheckNothingStarted;
begin
  Check(Called('--prepare') = 0, 'a preparation was started');
  Check(not DirectoryExists(UnixPath(Temp)), 'the temporary folder was touched');
end;

procedure CheckNotDelivered;
begin
  Check(Called('--finalize') = 0, 'something was delivered');
end;

function Delivered(const Name: string): string;
begin
  Check(WaitForAll, 'a started program does not end');
  Result := Contents(Local + '\Kestrune\ODBpp\' + Name + '.zip');
end;

// What the receiving application was started with.
function Received: string;
var
  Path: string;
  Turn: Integer;
begin
  Path := ReceiverFile + '.record';
  for Turn := 1 to 600 do
    if not FileExists(Path) then SysUtils.Sleep(50);
  Result := StringReplace(Contents(Path), #0, '', [rfReplaceAll]);
end;

function On_(const Field: string): Boolean;
begin
  Result := Pos(#10 + Field + #10, #10 + Contents(Archive)) > 0;
end;

{ success }

procedure WholeExport;
begin
  NewBoard(Board1).AddVia;
  Press;
  Check(Boxes.Count = 0, 'a box: ' + Boxes.Text);
  Check(Steps.Count = 5, 'steps shown: ' + Steps.Text);
  Check(Pos('Step 1 of 5', Steps.Text) = 1, 'first step: ' + Steps.Text);
  Check(Pos('Step 5 of 5', Steps[Steps.Count - 1]) = 1, 'last step: ' + Steps.Text);
  Check(Called('--position-window 65538 131074') = 1, 'the window was not centred');
  Check(Delivered('Main board') <> '', 'nothing was delivered');
  Check(Delivered('Main board') = Contents(Archive), 'something else was delivered');
  Check(Contents(Temp + '\ready.txt') = Board1, 'ready.txt names another board');
  Check(Client.GetDocumentByPath(Board1).Saves = 1, 'the board was not saved');
  Check(Called('compile ' + Temp) = 1, 'the project was not compiled');
end;

procedure EachBoardHasItsOwnArchive;
begin
  NewBoard(Board1).AddVia;
  Press;
  Check(Delivered('Main board') <> '', 'the first board');
  NewBoard(Board2).AddMechanical(3);
  Press;
  Check(Delivered('Second') <> '', 'the second board');
  Check(Delivered('Second') <> Delivered('Main board'), 'both archives are the same');
end;

procedure DifficultPaths;
const
  Names: array[0..3] of string = ('C:\Boards\It''s a test\O''Brien & Sons (1).PcbDoc',
    'C:\Boards\Größe\Übung %TEMP%.PcbDoc', 'C:\Boards\Плата.PcbDoc',
    '\\server\share\Boards\Net board.PcbDoc');
var
  I: Integer;
  Name: string;
begin
  for I := 0 to 3 do
  begin
    NewBoard(Names[I]);
    Press;
    Name := ExtractFileName(Names[I]);
    Check(Boxes.Count = 0, Names[I] + ': ' + Boxes.Text);
    Check(Delivered(Copy(Name, 1, Length(Name) - 7)) <> '', 'not delivered: ' + Names[I]);
  end;
end;

procedure SmallestClearanceIsHandedOn;
begin
  with NewBoard(Board1) do
  begin
    AddRule('Width Constraint (Min=1mil) (Max=2mil) (All)');
    AddRule('Clearance Constraint (Gap=10mil) (All),(All)');
    AddRule('Clearance Constraint (Gap=0.2mm) (InPolygon),(All)');
    AddRule('Component Clearance Constraint ( Horizontal Gap = 1mil )');
    AddRule('Clearance Constraint (Gap=oops) (All),(All)');
  end;
  Press;
  Check(Called('--finalize-auto "' + Board1 + '" 78740') = 1, Calls.Text);
  Check(Delivered('Main board') <> '', 'nothing was delivered');
  Check(Pos('/open "' + Local + '\Kestrune\ODBpp\Main board.zip"', Received) > 0, Received);
  Check(Pos(' -space:7.874mil', Received) > 0, Received);
end;

procedure NoClearanceNoValue;
begin
  NewBoard(Board1).AddRule('Clearance Constraint (Gap=0mil) (All),(All)');
  Press;
  Check(Called('--finalize-auto "' + Board1 + '"') = 1, Calls.Text);
  Check(Called('--finalize-auto "' + Board1 + '" ') = 0, Calls.Text);
  Check(Delivered('Main board') <> '', 'nothing was delivered');
  Check((Received <> '') and (Pos('-space', Received) = 0), Received);
end;

{ panels }

procedure NestedPanel;
var
  Panel, First, Second: IPCB_Board;
  Project: string;
begin
  Panel := NewBoard('C:\Boards\Panel.PcbDoc');
  First := Panel.AddChild('First.PcbDoc', Child('C:\Boards\First.PcbDoc'));
  Panel.AddChild('First.PcbDoc', First);
  Second := First.AddChild('Sub\Second.PcbDoc', Child('C:\Boards\Sub\Second.PcbDoc'));
  Second.AddChild('C:\Boards\Panel.PcbDoc', Panel);
  Second.AddMechanical(31);
  Answers := OnlyPrepare;
  Press;
  Project := Contents(Temp + '\Bridge.PrjPcb');
  Check(Pos('[Document2]'#13#10'DocumentPath=First.PcbDoc', Project) > 0, Project);
  Check(Pos('[Document3]'#13#10'DocumentPath=Second.PcbDoc', Project) > 0, Project);
  Check(Pos('[Document4]'#13#10'DocumentPath=Bridge.OutJob', Project) > 0, Project);
  Check(Contents(Temp + '\Second.PcbDoc') = 'board C:\Boards\Sub\Second.PcbDoc', 'the copy');
  Check(On_('Mechanical Layer 31'), 'a layer that only the innermost board uses');
end;

procedure MissingChildIsNamed;
begin
  NewBoard(Board1).AddChild('Gone.PcbDoc', nil);
  Press;
  CheckBox('C:\Boards\Gone.PcbDoc');
  CheckNothingStarted;
end;

procedure ChildWhereTheHostFoundIt;
begin
  NewBoard(Board1).AddChild('Elsewhere.PcbDoc', Child('C:\Boards\Lib\Elsewhere.PcbDoc'));
  Answers := OnlyPrepare;
  Press;
  Check(Contents(Temp + '\Elsewhere.PcbDoc') <> '', 'the child was not copied');
end;

procedure ChildrenOfOneNameAreRefused;
var
  Panel: IPCB_Board;
begin
  Panel := NewBoard(Board1);
  Panel.AddChild('A\Part.PcbDoc', Child('C:\Boards\A\Part.PcbDoc'));
  Panel.AddChild('B\part.PcbDoc', Child('C:\Boards\B\part.PcbDoc'));
  Press;
  CheckBox('C:\Boards\B\part.PcbDoc');
  CheckNothingStarted;
end;

procedure ChildOutsideTheCodePageIsRefused;
begin
  NewBoard(Board1).AddChild('Плата.PcbDoc', Child('C:\Boards\Плата.PcbDoc'));
  Press;
  CheckBox('Плата.PcbDoc');
  CheckNothingStarted;
end;

procedure NothingOfAChildThatIsNotLoadedIsLost;
begin
  Child('C:\Boards\Quiet.PcbDoc').Free;
  NewBoard(Board1).AddChild('Quiet.PcbDoc', nil);
  Answers := OnlyPrepare;
  Press;
  Check(On_('PlotPTHPair0_Plot') and On_('PlotNPTHPair0_Plot'), 'drills');
  Check(On_('PlotMidLayer30Plot') and On_('PlotInternalPlane16Plot'), 'copper');
  Check(On_('PlotMechanical16Plot') and On_('Mechanical Layer 112'), 'mechanical');
  Check(On_('PlotTopPastePlot') and On_('PlotBottomSolderPlot') and On_('PlotTopOverlayPlot'), 'masks');
end;

{ drills and layers }

procedure CheckDrills(Expected: Boolean; const Text: string);
begin
  Answers := OnlyPrepare;
  Press;
  Check(Contents(Archive) <> '', Text + ': no archive');
  Check(On_('PlotPTHPair0_Plot') = Expected, Text + ': plated holes');
  Check(On_('PlotNPTHPair0_Plot') = Expected, Text + ': unplated holes');
end;

procedure DrillsOfEveryKindOfBoard;
var
  Panel: IPCB_Board;
begin
  NewBoard('C:\Boards\Vias.PcbDoc').AddVia;
  CheckDrills(True, 'vias only');
  with NewBoard('C:\Boards\Pads.PcbDoc') do
  begin
    AddPad(0, eTopLayer);
    AddPad(0, eBottomLayer);
    AddPad(350000, eMultiLayer);
  end;
  CheckDrills(True, 'one through-hole pad after surface pads');
  NewBoard('C:\Boards\Hole.PcbDoc').AddPad(1250000, eMultiLayer);
  CheckDrills(True, 'one mounting hole');
  Panel := NewBoard('C:\Boards\Panel.PcbDoc');
  Panel.AddChild('Inner.PcbDoc', Child('C:\Boards\Inner.PcbDoc')).AddVia;
  CheckDrills(True, 'holes in the embedded board only');
  Panel := NewBoard('C:\Boards\Panel2.PcbDoc');
  Panel.AddChild('Outer.PcbDoc', Child('C:\Boards\Outer.PcbDoc'))
    .AddChild('Innermost.PcbDoc', Child('C:\Boards\Innermost.PcbDoc')).AddPad(1, eTopLayer);
  CheckDrills(True, 'one tiny hole two levels down');
  Version := 16;
  NewBoard('C:\Boards\Old.PcbDoc').AddVia;
  CheckDrills(True, 'an old host');
  Version := 24;
  NewBoard('C:\Boards\Surface.PcbDoc').AddPad(0, eTopLayer);
  CheckDrills(False, 'surface pads only');
end;

procedure MasksFollowThePads;
begin
  Answers := OnlyPrepare;
  NewBoard(Board1).AddPad(0, eBottomLayer);
  Press;
  Check(On_('PlotBottomPastePlot') and not On_('PlotTopPastePlot'), 'paste of a bottom pad');
  Check(On_('PlotBottomSolderPlot') and On_('PlotTopSolderPlot'), 'solder masks');
  NewBoard(Board2);
  Press;
  Check(not On_('PlotBottomSolderPlot') and not On_('PlotTopOverlayPlot'), 'an empty board');
  Check(On_('PlotTopLayerPlot') and On_('PlotBottomLayerPlot'), 'copper of an empty board');
end;

procedure FixedLayersThatAreUsed;
begin
  NewBoard(Board1).Used := [eTopOverlay, eBottomPaste, eKeepOutLayer, eDrillDrawing, eDrillGuide];
  Answers := OnlyPrepare;
  Press;
  Check(On_('PlotTopOverlayPlot') and On_('PlotBottomPastePlot') and On_('PlotKeepOutLayerPlot')
    and On_('PlotDrillDrawingPair0_Plot') and On_('PlotDrillGuidePair0_Plot'), Contents(Archive));
  Check(not On_('PlotBottomOverlayPlot') and not On_('PlotTopPastePlot'), Contents(Archive));
end;

procedure HundredLayers(FirstMid, FirstPlane: Integer);
var
  Board: IPCB_Board;
  I, Mechanical: Integer;
begin
  Mechanical := 32;
  if Version >= 19 then Mechanical := 43;
  Board := NewBoard('C:\Boards\Thick.PcbDoc');
  for I := 1 to 30 do Board.AddCopper(FirstMid + I - 1);
  for I := 1 to 16 do Board.AddCopper(FirstPlane + I - 1);
  for I := 1 to Mechanical do Board.AddMechanical(I);
  Board.Used := Board.Used + [eTopOverlay, eBottomOverlay, eTopPaste, eBottomPaste, eTopSolder,
    eBottomSolder, eKeepOutLayer, eDrillDrawing, eDrillGuide];
  Board.AddVia;
  Answers := OnlyPrepare;
  Press;
  Check(Boxes.Count = 0, Boxes.Text);
  for I := 1 to 30 do Check(On_('PlotMidLayer' + IntToStr(I) + 'Plot'), 'mid layer');
  for I := 1 to 16 do
  begin
    Check(On_('PlotInternalPlane' + IntToStr(I) + 'Plot'), 'plane');
    Check(On_('PlotMechanical' + IntToStr(I) + 'Plot'), 'mechanical layer');
  end;
  for I := 17 to Mechanical do Check(On_('Mechanical Layer ' + IntToStr(I)), 'mechanical layer');
  Check(not On_('Mechanical Layer ' + IntToStr(Mechanical + 1)), 'a layer too many');
  Check(On_('PlotTopLayerPlot') and On_('PlotBottomLayerPlot') and On_('PlotPTHPair0_Plot')
    and On_('PlotTopOverlayPlot') and On_('PlotBottomOverlayPlot') and On_('PlotKeepOutLayerPlot')
    and On_('PlotTopPastePlot') and On_('PlotBottomPastePlot') and On_('PlotTopSolderPlot')
    and On_('PlotBottomSolderPlot') and On_('PlotDrillDrawingPair0_Plot'), Contents(Archive));
end;

procedure HundredLayersInBothNumberings;
begin
  HundredLayers(16777218, 16842753);
  HundredLayers(2, 39);
  Version := 18;
  HundredLayers(16777218, 16842753);
  Version := 16;
  HundredLayers(2, 39);
end;

procedure ExactlyTheUsedLayers;
begin
  with NewBoard(Board1) do
  begin
    AddCopper(16777219);
    AddCopper(16777247);
    AddCopper(16842768);
    AddMechanical(1);
    AddMechanical(112);
  end;
  Answers := OnlyPrepare;
  Press;
  Check(On_('PlotMidLayer30Plot') and On_('PlotInternalPlane16Plot'), 'the last layers');
  Check(not On_('PlotMidLayer29Plot') and not On_('PlotInternalPlane15Plot'), 'the last but one');
  Check(On_('PlotMidLayer2Plot') and not On_('PlotMidLayer1Plot'), 'mid layer 2');
  Check(On_('PlotMechanical1Plot') and not On_('PlotMechanical11Plot'), 'mechanical 1');
  Check(On_('Mechanical Layer 112') and not On_('Mechanical Layer 11'), 'mechanical 112');
end;

procedure LayersBeyondTheOutputJobAreNamed;
begin
  NewBoard(Board1).AddMechanical(500);
  Press;
  CheckBox('500');
  Check(Delivered('Main board') <> '', 'the export does not stop for it');
end;

{ refusals }

procedure RefusedWith(const Part: string);
begin
  Press;
  CheckBox(Part);
  CheckNothingStarted;
end;

procedure NoBoard;
begin
  RefusedWith('Open the board');
end;

procedure NoBoardServer;
var
  Server: TPcbServer;
begin
  Server := PCBServer;
  PCBServer := nil;
  Press;
  PCBServer := Server;
  CheckBox('Open the board');
end;

procedure UnsavedBoard;
begin
  PCBServer.Front := IPCB_Board.Create('PCB1.PcbDoc');
  RefusedWith('never saved');
end;

procedure BoardWithoutFile;
begin
  PCBServer.Front := IPCB_Board.Create('C:\Boards\Never.PcbDoc');
  RefusedWith('never saved');
end;

procedure TemporaryBoard;
begin
  NewBoard(Temp + '\Bridge.PcbDoc');
  Press;
  CheckBox('temporary copy');
  Check(Called('run ') = 0, 'something was started');
  Documents.Clear;
  FrontDocument := nil;
  PCBServer.Front := nil;
end;

procedure Library_;
begin
  NewBoard('C:\Boards\Parts.PcbLib');
  RefusedWith('library');
end;

procedure RuntimeFilesAreMissing;
begin
  NewBoard(Board1);
  HostFiles.DeleteFile(Runtime + '\Bridge.OutJob');
  RefusedWith(Runtime + '\Bridge.OutJob');
  Boxes.Clear;
  HostFiles.DeleteFile(Runtime + '\Kestrune.exe');
  RefusedWith(Runtime + '\Kestrune.exe');
end;

procedure ProgramCannotStart;
begin
  NewBoard(Board1);
  Answers := CannotStart;
  Press;
  CheckBox('error 5');
  CheckNotDelivered;
end;

procedure NoInstallation;
begin
  NewBoard(Board1);
  Projects.Clear;
  RefusedWith('could not be found');
end;

procedure TemplateThatWasNeverFilledIn;
begin
  NewBoard(Board1);
  WriteBytes(Runtime + '\Kestrune.pas', FileOfMachine(Package + '/Script/Kestrune.pas'));
  RefusedWith('could not be found');
end;

procedure InstallationIsFoundInFourWays;
var
  I: Integer;
begin
  Answers := Failing;
  for I := 1 to 4 do
  begin
    Calls.Clear;
    NewBoard(Board1);
    Projects.Clear;
    ScriptProject := 'C:\Nowhere\x.PrjScr';
    AppDataFolder := 'C:\Nowhere\Roaming';
    TempFolder := 'C:\Windows\Temp\';
    Version := 24;
    if I = 1 then AddProject(Runtime + '\kestrune.PRJSCR');
    if I = 2 then ScriptProject := Runtime + '\Kestrune.PrjScr';
    if I = 3 then AppDataFolder := ExtractFileDir(Local) + '\Roaming\Altium\Altium Designer {X}';
    if I = 4 then
    begin
      Version := 18;
      TempFolder := Local + '\Temp\';
    end;
    Press;
    Check(Called('run "' + Runtime + '\Kestrune.exe" --prepare') = 1, 'way ' + IntToStr(I));
  end;
end;

procedure ApostropheInTheUsersName;
const
  Profile = 'C:\users\Pat O''Brien {x} Müller';
begin
  PutRuntime(Profile + '\AppData\Local\Kestrune\Runtime');
  NewBoard(Board1);
  Projects.Clear;
  AddProject(Profile + '\AppData\Local\Kestrune\Runtime\Kestrune.PrjScr');
  Answers := Failing;
  Press;
  Check(Called('run "' + Profile + '\AppData\Local\Kestrune\Runtime\Kestrune.exe" --prepare') = 1,
    Calls.Text);
  HostFiles.RemoveTree(Profile);
end;

{ saving }

procedure SavingIsAskedFor;
var
  Document: IServerDocument;
begin
  Answers := OnlyPrepare;
  NewBoard(Board1);
  Document := FrontDocument;
  AnswerSave := mrNo;
  Press;
  Check(Document.Saves = 0, 'saved against the answer');
  Check(Called('--finalize') = 1, 'the export goes on with the file as it is');
  AnswerSave := mrCancel;
  Calls.Clear;
  Press;
  Check((Document.Saves = 0) and (Called('run ') = 0), 'something happened after Cancel');
  Check(Boxes.Count = 0, Boxes.Text);
  AnswerSave := mrYes;
  Press;
  Check(Document.Saves = 1, 'not saved');
  Check(Questions.Count = 3, Questions.Text);
end;

procedure WriteProtectedBoard;
var
  Document: IServerDocument;
begin
  Answers := OnlyPrepare;
  NewBoard(Board1);
  Document := FrontDocument;
  Document.Modified := True;
  Document.ModifiedWrites := 0;
  Document.ReadOnly := True;
  AnswerNoYes := mrNo;
  Press;
  CheckNothingStarted;
  Check(Pos('changes that are not saved', Questions[0]) > 0, Questions.Text);
  AnswerNoYes := mrYes;
  Press;
  Check(Called('--finalize') = 1, 'not exported');
  Check(Document.Modified, 'the unsaved changes were forgotten');
end;

{ failures of the preparation }

procedure RemoveBoard(const Arguments: TStrings);
begin
  if Arguments[1] = '--prepare' then HostFiles.DeleteFile(Board1);
end;

procedure SourceDisappears;
begin
  NewBoard(Board1);
  BeforeStart := RemoveBoard;
  Press;
  CheckBox('no longer where it was');
  CheckNotDelivered;
end;

procedure RemoveJob(const Arguments: TStrings);
begin
  if Arguments[1] = '--prepare' then HostFiles.DeleteFile(Runtime + '\Bridge.OutJob');
end;

procedure OutputJobDisappears;
begin
  NewBoard(Board1);
  BeforeStart := RemoveJob;
  Press;
  CheckBox('--install again');
  CheckNotDelivered;
end;

procedure DamagedOutputJob;
begin
  NewBoard(Board1);
  WriteBytes(Runtime + '\Bridge.OutJob', '[OutputJobFile]'#13#10);
  Press;
  CheckBox('Bridge.OutJob of the installation is damaged');
  CheckNotDelivered;
end;

procedure ChildNamedLikeTheTemporaryBoard;
begin
  NewBoard(Board1).AddChild('Bridge.PcbDoc', Child('C:\Boards\Bridge.PcbDoc'));
  Press;
  CheckBox('Rename one of them');
  Check(Pos('C:\Boards\Bridge.PcbDoc', Boxes[0]) > 0, Boxes.Text);
  CheckNotDelivered;
end;

procedure BlockStatus(const Arguments: TStrings);
begin
  if Arguments[1] = '--prepare' then WriteBytes(Arguments[5], '');
end;

procedure StatusCannotBePublished;
begin
  NewBoard(Board1);
  BeforeStart := BlockStatus;
  Press;
  CheckBox('no answer in time');
  CheckNotDelivered;
end;

procedure FailsWith(const Line, Part: string);
begin
  NewBoard(Board1);
  Answers := Failing;
  LogLine := Line;
  Boxes.Clear;
  Press;
  CheckBox(Part);
  Check(Pos(LogPath, Boxes[0]) > 0, 'the log is not named: ' + Boxes.Text);
  CheckNotDelivered;
end;

procedure StartLogOver(const Arguments: TStrings);
begin
  if Arguments[1] = '--prepare' then WriteBytes(LogPath, '');
end;

procedure ReasonsInWords;
const
  Stamp = '[2026-3-7 9:5:2] Stage: ';
  Failed_ = Stamp + 'Prepare failed | Error=copy GetLastError=';
begin
  FailsWith('', 'profile folders');
  FailsWith(Failed_ + '112', 'is full');
  FailsWith('', 'profile folders');
  FailsWith(Failed_ + '32', 'is in use');
  FailsWith(Failed_ + '5', 'refused');
  FailsWith(Failed_ + '1234', 'Windows error 1234');
  FailsWith(Stamp + 'Prepare missing dependency | C:\Boards\Child.PcbDoc', 'C:\Boards\Child.PcbDoc');
  FailsWith(Stamp + 'Prepare missing dependency | C:\Boards\Größe.PcbDoc', 'disappeared');
  Check(Pos('Gr', Boxes[0]) = 0, 'a garbled path: ' + Boxes.Text);
  FailsWith(Stamp + 'Prepare dependency name collision | C:\B\X.PcbDoc', 'same file name');
  FailsWith(Stamp + 'Prepare rejected | Cannot validate source PCB paths. Temporary files were not'
    + ' removed.', 'network folder');
  FailsWith(Stamp + 'Prepare rejected | Cannot export the Bridge temporary PCB or an embedded board'
    + ' from its temporary folder. Open the original PCB project, not Bridge.PcbDoc from Recent.',
    'Open the original');
  BeforeStart := StartLogOver;
  FailsWith(Failed_ + '112', 'is full');
end;

procedure NoAnswerAtAll;
begin
  NewBoard(Board1);
  Answers := Silent;
  Press;
  CheckBox('no answer in time');
  Check(Pauses > 3000, 'the limit is too short');
  CheckNotDelivered;
end;

procedure FullDisk;
begin
  NewBoard(Board1);
  DiskIsFull := True;
  Press;
  CheckBox('Is the disk full');
  CheckNothingStarted;
end;

// Only where the caller has put a small file system under the temporary folder.
procedure FullTemporaryDisk;
begin
  NewBoard(Board1);
  WriteBytes(Board1, StringOfChar('x', 300000));
  Press;
  CheckBox('is full');
  CheckNotDelivered;
end;

procedure FillDisk;
begin
  if Pos('Step 1', KestruneWaitForm.StepLabel.Caption) = 1 then DiskIsFull := True;
end;

procedure DiskBecomesFull;
begin
  NewBoard(Board1);
  OnMessages := FillDisk;
  Press;
  CheckBox('Is the disk full');
  CheckNothingStarted;
end;

{ failures of the host }

procedure HostWritesNothing;
begin
  NewBoard(Board1);
  Generation := WritesNothing;
  WaitAnswer := 'ERROR'#13#10;
  Press;
  CheckBox('no complete ODB++ archive');
  CheckNotDelivered;
end;

procedure HostWritesNothingForTwoMinutes;
begin
  NewBoard(Board1);
  Generation := WritesEmptyFile;
  Press;
  CheckBox('no complete ODB++ archive');
  CheckNotDelivered;
end;

procedure HostDoesNotOpenTheProject;
begin
  NewBoard(Board1);
  Answers := OnlyPrepare;
  OpenDoesNothing := True;
  Press;
  CheckBox('did not open');
  Check(Called('generate') = 0, 'an output was run on another project');
  CheckNotDelivered;
end;

procedure LeftOverProjectIsClosedFirst;
begin
  WriteBytes(Temp + '\Bridge.PrjPcb', '[Document1]'#13#10'DocumentPath=Bridge.PcbDoc'#13#10
    + '[Document2]'#13#10'DocumentPath=Bridge.OutJob'#13#10);
  WriteBytes(Temp + '\Bridge.OutJob', 'old');
  WriteBytes(Temp + '\Bridge.PcbDoc', 'old');
  AddProject(Temp + '\Bridge.PrjPcb');
  Client.OpenDocument('PCB', Temp + '\Bridge.PcbDoc').Modified := True;
  NewBoard(Board1);
  Press;
  Check(Boxes.Count = 0, Boxes.Text);
  Check(Delivered('Main board') <> '', 'not exported');
end;

procedure LeftOverProjectThatCannotBeClosed;
begin
  WriteBytes(Temp + '\Bridge.PrjPcb', '[Document1]'#13#10'DocumentPath=Bridge.OutJob'#13#10);
  WriteBytes(Temp + '\Bridge.OutJob', 'old');
  AddProject(Temp + '\Bridge.PrjPcb');
  NewBoard(Board1);
  CloseDoesNothing := True;
  Press;
  Check(Boxes.Count = 2, Boxes.Text);
  Check(Pos('could not be closed', Boxes[0]) > 0, Boxes.Text);
  Check(Pos('is still open', Boxes[1]) > 0, Boxes.Text);
  Check(Called('--prepare') = 0, 'the open project was overwritten');
  Projects.Clear;
  Documents.Clear;
  FrontDocument := nil;
  PCBServer.Front := nil;
end;

procedure HostFailsWhileItCloses;
begin
  NewBoard(Board1);
  Answers := OnlyPrepare;
  CloseFails := True;
  Press;
  CheckBox('could not be closed');
  Check(Called('--finalize') = 1, 'the archive was there and was not delivered');
  Check((FrontDocument <> nil) and (FrontDocument.Path = Board1), 'the board is not in front');
  Projects.Clear;
  Documents.Clear;
  FrontDocument := nil;
  PCBServer.Front := nil;
end;

procedure OtherProjectsStayOpen;
begin
  WriteBytes('C:\Boards\Mine.PrjPcb', '[Document1]'#13#10'DocumentPath=Main board.PcbDoc'#13#10);
  AddProject('C:\Boards\Mine.PrjPcb');
  NewBoard(Board1);
  Answers := OnlyPrepare;
  Press;
  Check(Projects.Count = 2, 'a project of the user was closed');
  Check(Client.GetDocumentByPath(Board1) <> nil, 'the board was closed');
end;

procedure Stumble;
begin
  if Pos('Step 2', KestruneWaitForm.StepLabel.Caption) = 1 then
  begin
    OnMessages := nil;
    raise Exception.Create('the host failed');
  end;
end;

procedure UnexpectedError;
begin
  NewBoard(Board1);
  Answers := OnlyPrepare;
  OnMessages := Stumble;
  Press;
  CheckBox('opening the temporary project');
  CheckNotDelivered;
end;

{ the user }

procedure CancelDuringGeneration;
begin
  KestruneWaitForm.CancelButtonClick(nil);
end;

procedure CancelInEveryStep;
var
  I: Integer;
begin
  for I := 1 to 5 do
  begin
    NewBoard(Board1);
    CancelIn := 'Step ' + IntToStr(I);
    Press;
    Check(CancelIn = 'done', 'step ' + IntToStr(I) + ' was not reached');
    Check(Boxes.Count = 0, Boxes.Text);
    CheckNotDelivered;
    if I <= 3 then Check(Called('generate ') = 0, 'an output was run after the cancelling');
    Check(WaitForAll, 'a program does not end');
    if I < 4 then CheckTidy;
  end;
  NewBoard(Board1);
  Answers := OnlyPrepare;
  OnGenerate := CancelDuringGeneration;
  Press;
  Check(Called('--wait-native') <= 2, 'waited in spite of the cancelling');
  CheckNotDelivered;
  OnGenerate := nil;
  // What the cancelled waits wrote too late is gone after the next export.
  Answers := OnlyPrepare;
  Press;
end;

// The wait itself cannot be stopped; the window does not wait for it.
procedure CancelledWaitEndsAtOnce;
begin
  NewBoard(Board1);
  Answers := OnlyPrepare;
  WaitAnswer := #13#10;
  CancelIn := 'Step 4';
  Press;
  Check(CancelIn = 'done', 'step 4 was not reached');
  Check(Pauses < 50, IntToStr(Pauses) + ' pauses after the cancelling');
  CheckNotDelivered;
end;

procedure NoteExchangeFiles(const Arguments: TStrings);
begin
  if Arguments[1] = '--prepare' then Steps.Add(Arguments[5]);
  if Arguments[1] = '--wait-native' then Steps.Add(Arguments[4]);
end;

// A cancelled export's program may answer while the next one waits.
procedure EachExportHasItsOwnExchangeFiles;
var
  First: string;
  I: Integer;
begin
  NewBoard(Board1);
  Answers := OnlyPrepare;
  BeforeStart := NoteExchangeFiles;
  Press;
  First := Steps.Text;
  Press;
  for I := 0 to Steps.Count - 1 do
    if Pos(Exchange, Steps[I]) = 1 then
      Check(Pos(Steps[I] + LineEnding, First) = 0, 'used twice: ' + Steps[I]);
  Check(Pos(Exchange, First) > 0, First);
end;

procedure ClosingTheWindowCancels;
var
  I: Integer;
begin
  Answers := OnlyPrepare;
  for I := 1 to 5 do
  begin
    NewBoard(Board1);
    CloseIn := 'Step ' + IntToStr(I);
    Press;
    Check(CloseIn = 'done', 'step ' + IntToStr(I) + ' was not reached');
    CheckNotDelivered;
    CheckTidy;
  end;
end;

procedure SecondPress;
begin
  NewBoard(Board1);
  PressIn := 'Step 1';
  Press;
  Check(PressIn = 'done', 'not pressed');
  Check(Pos('already running', NoteSeen) > 0, 'note: ' + NoteSeen);
  Check(Called('--prepare') = 1, 'two preparations');
  Check(Delivered('Main board') <> '', 'the first export suffered');
  Check(Boxes.Count = 0, Boxes.Text);
end;

procedure PressAgain;
begin
  RunKestrune;
end;

procedure SecondPressWhileTheHostWorks;
begin
  NewBoard(Board1);
  Answers := OnlyPrepare;
  OnGenerate := PressAgain;
  Press;
  Check(Called('--prepare') = 1, 'two preparations');
  Check(Called('--finalize') = 1, 'the first export suffered');
end;

procedure PressAfterClosing;
begin
  if not KestruneWaitForm.Visible then Exit;
  OnMessages := nil;
  KestruneWaitForm.CancelButton.Enabled := False;
  KestruneWaitForm.Visible := False;
  RunKestrune;
end;

// The window is gone, but the export that it belonged to has not ended yet.
procedure PressAfterTheWindowWasClosed;
begin
  NewBoard(Board1);
  Answers := OnlyPrepare;
  AnswerNoYes := mrNo;
  OnMessages := PressAfterClosing;
  Press;
  Check(Pos('has not ended yet', Questions.Text) > 0, Questions.Text);
  Check(Called('--prepare') = 0, 'an export goes on');
  AnswerNoYes := mrYes;
  Press;
  Check(Called('--finalize') = 1, 'the next press does not export');
end;

procedure SecondHostWindow;
begin
  NewBoard(Board1);
  Answers := OnlyPrepare;
  WriteBytes(Exchange + '\running.txt', '');
  OpenFiles.Add(Exchange + '\running.txt');
  AnswerNoYes := mrNo;
  Press;
  CheckNothingStarted;
  Check(Pos('Another window', Questions.Text) > 0, Questions.Text);
  AnswerNoYes := mrYes;
  Press;
  Check(Called('--finalize') = 1, 'not exported');
  Check(OpenFiles.Count = 1, 'the other window''s lock was taken away');
  OpenFiles.Clear;
  HostFiles.DeleteFile(Exchange + '\running.txt');
end;

{ the form }

procedure FormTextIsWellFormed;
var
  Text: TFileStream;
  Binary: TMemoryStream;
begin
  Text := TFileStream.Create(Package + '/Script/Kestrune_WaitForm.dfm', fmOpenRead);
  Binary := TMemoryStream.Create;
  ObjectTextToBinary(Text, Binary);
  Check(Binary.Size > 500, 'the form is empty');
  Binary.Free;
  Text.Free;
end;

{ running }

procedure Run(const Name: string; Test: TTest);
var
  Begun: TDateTime;
begin
  if (Filter <> '') and (Pos(Filter, Name) = 0) then Exit;
  TestName := Name;
  TestFailed := False;
  Begun := Now;
  try
    Prepare;
    Test;
    CheckTidy;
  except
    on E: Exception do Check(False, E.ClassName + ': ' + E.Message);
  end;
  if TestFailed then Inc(Failed) else Inc(Passed);
  if TestFailed then Write('not ok ') else Write('ok ');
  WriteLn(Name, Format(' (%.1f s)', [(Now - Begun) * 86400]));
  Flush(Output);
  OpenFiles.Clear;
  OpenLists := 0;
end;

procedure FindUser;
var
  Entry: TSearchRec;
begin
  if FindFirst(UnixPath('C:\users\*'), faDirectory, Entry) = 0 then
  begin
    repeat
      if (Entry.Name[1] <> '.') and (Entry.Name <> 'Public') and (Pos(' ', Entry.Name) = 0) then
        Local := 'C:\users\' + Entry.Name + '\AppData\Local';
    until FindNext(Entry) <> 0;
    FindClose(Entry);
  end;
  if Local = '' then raise Exception.Create('no user in the prefix');
end;

procedure RunAll;
begin
  Run('FormTextIsWellFormed', FormTextIsWellFormed);
  Run('WholeExport', WholeExport);
  Run('EachBoardHasItsOwnArchive', EachBoardHasItsOwnArchive);
  Run('DifficultPaths', DifficultPaths);
  Run('SmallestClearanceIsHandedOn', SmallestClearanceIsHandedOn);
  Run('NoClearanceNoValue', NoClearanceNoValue);
  Run('NestedPanel', NestedPanel);
  Run('MissingChildIsNamed', MissingChildIsNamed);
  Run('ChildWhereTheHostFoundIt', ChildWhereTheHostFoundIt);
  Run('ChildrenOfOneNameAreRefused', ChildrenOfOneNameAreRefused);
  Run('ChildOutsideTheCodePageIsRefused', ChildOutsideTheCodePageIsRefused);
  Run('NothingOfAChildThatIsNotLoadedIsLost', NothingOfAChildThatIsNotLoadedIsLost);
  Run('DrillsOfEveryKindOfBoard', DrillsOfEveryKindOfBoard);
  Run('MasksFollowThePads', MasksFollowThePads);
  Run('FixedLayersThatAreUsed', FixedLayersThatAreUsed);
  Run('HundredLayersInBothNumberings', HundredLayersInBothNumberings);
  Run('ExactlyTheUsedLayers', ExactlyTheUsedLayers);
  Run('LayersBeyondTheOutputJobAreNamed', LayersBeyondTheOutputJobAreNamed);
  Run('NoBoard', NoBoard);
  Run('NoBoardServer', NoBoardServer);
  Run('UnsavedBoard', UnsavedBoard);
  Run('BoardWithoutFile', BoardWithoutFile);
  Run('TemporaryBoard', TemporaryBoard);
  Run('Library', Library_);
  Run('RuntimeFilesAreMissing', RuntimeFilesAreMissing);
  Run('ProgramCannotStart', ProgramCannotStart);
  Run('NoInstallation', NoInstallation);
  Run('TemplateThatWasNeverFilledIn', TemplateThatWasNeverFilledIn);
  Run('InstallationIsFoundInFourWays', InstallationIsFoundInFourWays);
  Run('ApostropheInTheUsersName', ApostropheInTheUsersName);
  Run('SavingIsAskedFor', SavingIsAskedFor);
  Run('WriteProtectedBoard', WriteProtectedBoard);
  Run('SourceDisappears', SourceDisappears);
  Run('OutputJobDisappears', OutputJobDisappears);
  Run('DamagedOutputJob', DamagedOutputJob);
  Run('ChildNamedLikeTheTemporaryBoard', ChildNamedLikeTheTemporaryBoard);
  Run('StatusCannotBePublished', StatusCannotBePublished);
  Run('ReasonsInWords', ReasonsInWords);
  Run('NoAnswerAtAll', NoAnswerAtAll);
  Run('FullDisk', FullDisk);
  Run('DiskBecomesFull', DiskBecomesFull);
  Run('HostWritesNothing', HostWritesNothing);
  if GetEnvironmentVariable('KESTRUNE_QUICK') = '' then
    Run('HostWritesNothingForTwoMinutes', HostWritesNothingForTwoMinutes);
  Run('HostDoesNotOpenTheProject', HostDoesNotOpenTheProject);
  Run('LeftOverProjectIsClosedFirst', LeftOverProjectIsClosedFirst);
  Run('LeftOverProjectThatCannotBeClosed', LeftOverProjectThatCannotBeClosed);
  Run('HostFailsWhileItCloses', HostFailsWhileItCloses);
  Run('OtherProjectsStayOpen', OtherProjectsStayOpen);
  Run('UnexpectedError', UnexpectedError);
  Run('CancelInEveryStep', CancelInEveryStep);
  Run('CancelledWaitEndsAtOnce', CancelledWaitEndsAtOnce);
  Run('EachExportHasItsOwnExchangeFiles', EachExportHasItsOwnExchangeFiles);
  Run('ClosingTheWindowCancels', ClosingTheWindowCancels);
  Run('SecondPress', SecondPress);
  Run('SecondPressWhileTheHostWorks', SecondPressWhileTheHostWorks);
  Run('PressAfterTheWindowWasClosed', PressAfterTheWindowWasClosed);
  Run('SecondHostWindow', SecondHostWindow);
end;

procedure RunDeployed;
begin
  Run('WholeExport', WholeExport);
  Run('EachBoardHasItsOwnArchive', EachBoardHasItsOwnArchive);
  Run('NestedPanel', NestedPanel);
  Run('DrillsOfEveryKindOfBoard', DrillsOfEveryKindOfBoard);
end;

begin
  Prefix := ParamStr(1);
  Package := ParamStr(2);
  ProgramFile := ParamStr(3);
  Receiver := ParamStr(4);
  StartScript := ParamStr(5);
  Filter := ParamStr(6);
  Steps := Classes.TStringList.Create;
  FindUser;

  Deployed := GetEnvironmentVariable('KESTRUNE_DEPLOYED');
  if Deployed <> '' then RunDeployed
  else if GetEnvironmentVariable('KESTRUNE_SMALL_DISK') <> '' then
    Run('FullTemporaryDisk', FullTemporaryDisk)
  else RunAll;

  WriteLn(Passed, ' passed, ', Failed, ' failed');
  if (Failed > 0) or (Passed = 0) then Halt(1);
end.
