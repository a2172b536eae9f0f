program export_demo;
{$mode delphi}{$H+}
// Presses the button of an installed host and shows each step with its time: the script that the
// installer deployed runs in the stand-in of the host and starts the deployed Kestrune.exe under Wine.
// Started in the project's folder.
//
// export_demo PREFIX CUSTOMIZATION_FILE BOARD [--archive FILE] [--photos FOLDER] [--without-drills]
//
//   CUSTOMIZATION_FILE  of the host, with the button (a path of Windows)
//   BOARD               the board in front (a path of Windows)
//   --archive           the bytes that the host writes instead of a generated archive
//   --photos            requests screenshots through files in this folder: the caller creates NAME.taken
//                       after NAME.please
//   --without-drills    the host writes no drills, and the user chooses No in the box of the check
//
// The exit code is 0 when the archive was delivered or, with --without-drills, not delivered.

uses
  cthreads, Classes, SysUtils, HostFiles, Archives, HostStandIn, ScriptUnderTest, HostServer, Programs,
  Installation, WaitWindow;

var
  Button, Board, GivenFile, Photos: string;
  Begun: QWord;
  LastStep: string;
  EndsShown: Integer;
  DrillsAreLost: Boolean;

function Replaced(const Text, Old, New: string): string;
begin
  Result := SysUtils.StringReplace(Text, Old, New, [SysUtils.rfReplaceAll]);
end;

procedure Show(const Text: string);
var
  Line: string;
begin
  // Boxes and questions have several lines.
  Line := TrimRight(Replaced(Replaced(Text, #13, ''), #10#10, #10));
  WriteLn(Format('%7.2f s  %s', [(GetTickCount64 - Begun) / 1000,
    Replaced(Line, #10, #10 + StringOfChar(' ', 11))]));
  Flush(Output);
end;

procedure Photograph(const Name: string);
var
  Turn: Integer;
begin
  if Photos = '' then Exit;
  FileClose(FileCreate(Photos + '/' + Name + '.please'));
  for Turn := 1 to 500 do
    if not SysUtils.FileExists(Photos + '/' + Name + '.taken') then SysUtils.Sleep(20);
end;

procedure ShowPlace;
var
  Left, Top, MiddleX, MiddleY: Integer;
begin
  FindPlace(Left, Top, MiddleX, MiddleY);
  Show(Format('the window is at %d,%d; the middle of the screen is at %d,%d', [Left, Top, MiddleX, MiddleY]));
end;

procedure ShowEnds;
begin
  while EndsShown < Ends.Count do
  begin
    Show(Ends[EndsShown]);
    if Pos('--position-window', Ends[EndsShown]) = 1 then
    begin
      ShowPlace;
      Photograph('2-after-centring');
    end;
    Inc(EndsShown);
  end;
end;

procedure Watch;
begin
  if LastStep <> KestruneWaitForm.StepLabel.Caption then
  begin
    LastStep := KestruneWaitForm.StepLabel.Caption;
    if Trim(LastStep) <> '' then Show(LastStep);
  end;
  ShowEnds;
end;

procedure ShowCall(const Text: string);
begin
  Watch;
  Show(Text);
end;

procedure BeforeProgram(const Arguments: TStrings);
begin
  if Arguments[1] <> '--position-window' then Exit;
  ShowPlace;
  Photograph('1-before-centring');
end;

procedure ShowProgramBox;
begin
  Show('Kestrune.exe shows a box with icon ' + ProgramBoxes[ProgramBoxes.Count - 1]);
  Photograph('3-result');
end;

// A board of two layers with parts on its top side.
procedure FillBoard(Item: IPCB_Board);
var
  I: Integer;
begin
  for I := 1 to 7 do
  begin
    Item.AddPad(0, eTopLayer);
    Item.AddTrack(eTopLayer);
  end;
  Item.AddVia;
  Item.AddPad(1000000, eMultiLayer);
  Item.AddUnplatedHole;
  Item.AddTrack(eTopOverlay);
  Item.AddTrack(eKeepOutLayer);
  Item.AddMechanical(17);
  Item.AddRule('Clearance Constraint (Gap=8mil) (All),(All)');
end;

// The host with the deployed script and the board in front.
procedure OpenBoard;
var
  Item: IPCB_Board;
begin
  ResetHost;
  ResetPrograms;
  Projects.Add(IProject.Create(ProjectOfButton(Button)));
  Item := IPCB_Board.Create(Board);
  // A board of the user is known only as a file, and an archive of the user only as bytes.
  if GivenFile = '' then FillBoard(Item);
  PCBServer.Front := Item;
  PutInFront(Client.OpenDocument('PCB', Board));
  FrontDocument.Board := Item;
  Generation := InPieces;
  if DrillsAreLost then Flaw := WithoutDrills;
  if DrillsAreLost then AnswerNoYes := mrNo;
  if GivenFile <> '' then GivenArchive := FileOfMachine(GivenFile);
end;

// As left by the probe when scripts can read the handle of a form.
procedure KnowHandle;
begin
  MissingMembers.Delete(MissingMembers.IndexOf('TForm.Handle'));
  WriteBytes(LocalAppData + '\Kestrune\form-handle-' + IntToStr(Version) + '.1.2.44.txt', '');
end;

procedure ReadOptions;
var
  I: Integer;
begin
  for I := 4 to ParamCount do
  begin
    if ParamStr(I) = '--archive' then GivenFile := ParamStr(I + 1);
    if ParamStr(I) = '--photos' then Photos := ParamStr(I + 1);
    if ParamStr(I) = '--without-drills' then DrillsAreLost := True;
  end;
end;

procedure Press;
begin
  LoadScript;
  BeforeStart := BeforeProgram;
  OnProgramBox := ShowProgramBox;
  OnMessages := Watch;
  OnCall := ShowCall;
  Begun := GetTickCount64;
  RunInInterpreter(RunKestrune);
  if not WaitForAll then raise Exception.Create('a started program does not end');
  ShowEnds;
end;

function EndedWell: Boolean;
begin
  Result := (Stopped = '') and (Complaints.Count = 0) and (Boxes.Count = 0);
  if not DrillsAreLost then Result := Result and (Ends.IndexOf('--finalize-auto ended with 0') >= 0)
  else Result := Result and (Called('--finalize-auto') = 0) and (Called('question The archive') = 1);
end;

begin
  Prefix := ParamStr(1);
  Button := ParamStr(2);
  Board := ParamStr(3);
  LoadHost('tests/script/observed-host.txt');
  StartServer;
  ReadOptions;
  OpenBoard;
  KnowHandle;
  ShowWindows('Host stand-in - ' + ExtractFileName(UnixPath(Board)),
    UnixPath(Replaced(ProjectOfButton(Button), 'Kestrune.PrjScr', 'Kestrune_WaitForm.dfm')));
  Press;
  StopServer;
  if not EndedWell then
  begin
    WriteLn('the export did not end as expected: ', Stopped, Complaints.Text, Boxes.Text);
    Halt(1);
  end;
end.
