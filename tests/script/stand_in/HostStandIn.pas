unit HostStandIn;
{$mode delphi}{$H+}
// Simulates the host's scripting interface as far as the script uses it, with the host's names, parameters and
// failures. Every call is added to Calls. A member that the host's version does not have, and every
// question about unsaved changes that the script causes, is added to Complaints.
//
// Where hosts differ, the stand-in behaves as the host of a report (LoadHost). An error that the interpreter of a host cannot
// catch ends the script's thread at once, without its Except and Finally (StopInterpreter).

interface

uses SysUtils, Classes, Contnrs, HostFiles, Archives;

const
  eTopLayer = 1; eMidLayer1 = 2; eBottomLayer = 32; eTopOverlay = 33; eBottomOverlay = 34;
  eTopPaste = 35; eBottomPaste = 36; eTopSolder = 37; eBottomSolder = 38; eInternalPlane1 = 39;
  eDrillGuide = 55; eKeepOutLayer = 56; eMechanical1 = 57; eDrillDrawing = 73; eMultiLayer = 74;
  eNoDimension = 0; eCreate_Default = 0;
  eArcObject = 1; eFillObject = 6; eTrackObject = 4; eViaObject = 3; ePadObject = 2; eRuleObject = 16; eEmbeddedBoardObject = 26;
  eProcessAll = 0;
  eLayerClass_Physical = 2; eLayerClass_Electrical = 3;
  eRule_Clearance = 0; eRule_Width = 2;
  mrYes = 6; mrNo = 7; mrCancel = 2;
  fsNormal = 0; fsStayOnTop = 3;

type
  TDynamicString = string;
  TSet = set of Byte;
  TCloseAction = (caNone, caHide, caFree, caMinimize);

  IPCB_Primitive = class
    ObjectId: Integer;
    LayerNumber: Integer;
    Dead: Boolean;       // its document was closed
    procedure Use(const Member: string);
  end;
  IPCB_Rule = class(IPCB_Primitive)
    Text: string;
    Kind: Integer;
    IsEnabled: Boolean;
    function Descriptor: string;
    function RuleKind: Integer;
    function Enabled: Boolean;
  end;
  IPCB_Pad = class(IPCB_Primitive)
    Hole: Integer;
    IsPlated: Boolean;
    function HoleSize: Integer;
    function Plated: Boolean;
    function Layer: Integer;
  end;
  IPCB_Via = class(IPCB_Primitive)
  end;
  IPCB_Track = IPCB_Primitive;
  IPCB_Board = class;
  IPCB_EmbeddedBoard = class(IPCB_Primitive)
    StoredPath: string;
    Loaded: IPCB_Board;
    Mirrored: Boolean;
    function DocumentPath: string;
    function MirrorFlag: Boolean;
    function ChildBoard: IPCB_Board;
  end;

  // The result of an iterator: an object of any type, which must be that of the variable.
  TAnyObject = record
    Item: IPCB_Primitive;
    class operator Implicit(const A: TAnyObject): IPCB_Primitive;
    class operator Implicit(const A: TAnyObject): IPCB_Rule;
    class operator Implicit(const A: TAnyObject): IPCB_Pad;
    class operator Implicit(const A: TAnyObject): IPCB_Via;
    class operator Implicit(const A: TAnyObject): IPCB_EmbeddedBoard;
  end;

  // The script's lists of objects.
  TObjectList = class(Contnrs.TObjectList)
  private
    function GetItem(I: Integer): TAnyObject;
  public
    constructor Create;
    destructor Destroy; override;
    property Items[I: Integer]: TAnyObject read GetItem;
  end;

  IPCB_BoardIterator = class
    Board: IPCB_Board;
    Objects, Layers: TSet;
    Filters: Integer;
    Position: Integer;
    procedure AddFilter_ObjectSet(const S: TSet);
    procedure AddFilter_LayerSet(const S: TSet);
    procedure AddFilter_Method(Method: Integer);
    function NextPCBObject: TAnyObject;
    function FirstPCBObject: TAnyObject;
  end;

  TLayerId = record
    ID: Integer;
  end;
  IPCB_LayerObject = class
    Number: TLayerId;
    HasPrims: Boolean;
    function V7_LayerID: TLayerId;
    function UsedByPrims: Boolean;
  end;
  IPCB_MechanicalLayer = class(IPCB_LayerObject)
  end;
  IPCB_MasterLayerStack = class
    Copper: Contnrs.TObjectList;
    Mechanical: Contnrs.TObjectList;   // of the layers 1 to 1024
    constructor Create;
    function First(LayerClass: Integer): IPCB_LayerObject;
    function Next(LayerClass: Integer; Layer: IPCB_LayerObject): IPCB_LayerObject;
    function GetMechanicalLayer(I: Integer): IPCB_MechanicalLayer;
    function LayerObject_V7(Layer: Integer): IPCB_MechanicalLayer;
  end;
  IPCB_Board = class
  private
    FFileName: string;
    FContent: string;       // of its file when it was opened
    FStack: IPCB_MasterLayerStack;
    function GetStack: IPCB_MasterLayerStack;
    function GetLayerIsUsed(Layer: Integer): Boolean;
    procedure Use(const Member: string);
    function GetFileName: string;
  public
    Objects: Contnrs.TObjectList;
    Used: set of Byte;      // the flags of the layers; an object sets its layer's
    Dead: Boolean;          // its document was closed
    constructor Create(const Path: string);
    // set by tests
    procedure AddCopper(Id: Integer);
    procedure AddMechanical(I: Integer);
    procedure AddPad(HoleSize, Layer: Integer);
    procedure AddUnplatedHole;
    procedure AddVia;
    procedure AddTrack(Layer: Integer);
    procedure AddRule(const Descriptor: string);
    procedure AddDisabledRule(const Descriptor: string);
    procedure Die;
    function AddChild(const DocumentPath: string; Board: IPCB_Board): IPCB_Board;
    function AddMirroredChild(const DocumentPath: string; Board: IPCB_Board): IPCB_Board;
    // read by the script
    property FileName: string read GetFileName;
    property MasterLayerStack: IPCB_MasterLayerStack read GetStack;
    property LayerIsUsed[Layer: Integer]: Boolean read GetLayerIsUsed;
    procedure AddPCBObject(Item: IPCB_Primitive);
    function BoardIterator_Create: IPCB_BoardIterator;
    procedure BoardIterator_Destroy(Iterator: IPCB_BoardIterator);
  end;

  TPcbServer = class
    Front: IPCB_Board;      // the board whose document was opened last
    function GetCurrentPCBBoard: IPCB_Board;
    function PCBObjectFactory(Kind, Dimension, Mode: Integer): IPCB_Primitive;
  end;
  TLayerUtils = class
    function MechanicalLayer(I: Integer): Integer;
  end;

  IServerDocument = class
  private
    FModified: Boolean;
    function GetModified: Boolean;
  public
    Path, Kind: string;
    Loaded: string;         // what the file held when it was opened
    ReadOnly, Dead: Boolean;
    Board: IPCB_Board;
    Saves, ModifiedWrites: Integer;
    procedure Use(const Member: string);
    procedure SetModified(Value: Boolean);
    function DoFileSave(const AKind: string): Boolean;
    property Modified: Boolean read GetModified write SetModified;
    property ReallyModified: Boolean read FModified write FModified;
  end;

  IDocument = class
    Path: string;
    function DM_FullPath: string;
  end;
  IProject = class
    Path: string;
    Members: Contnrs.TObjectList;
    Compiled: Boolean;
    constructor Create(const ProjectPath: string);
    function DM_ProjectFullPath: string;
    function DM_LogicalDocumentCount: Integer;
    function DM_LogicalDocuments(I: Integer): IDocument;
    function DM_NeedsCompile: Boolean;
    procedure DM_Compile;
    function Has(const DocumentPath: string): Boolean;
  end;
  IWorkspace = class
    function DM_ProjectCount: Integer;
    function DM_Projects(I: Integer): IProject;
    function DM_FocusedProject: IProject;
    function DM_FocusedDocument: IDocument;
    function DM_OpenProject(const Path: string; Show: Boolean): IProject;
  end;
  TClient = class
    function GetProductVersion: string;
    function MainWindowHandle: Integer;
    function GetDocumentByPath(const Path: string): IServerDocument;
    function OpenDocument(const Kind, Path: string): IServerDocument;
    procedure ShowDocument(Document: IServerDocument);
    procedure CloseDocument(Document: IServerDocument);
    function IsDocumentOpen(const Path: string): Boolean;
    function IsQuitting: Boolean;
    procedure KestruneHasNoSuchMember;
  end;

  TForm = class;
  TControl = class
    Name: string;
    constructor Create(Form: TForm; const ControlName: string);
  end;
  TLabel = class(TControl)
    Caption: string;
  end;
  TProgressBar = class(TControl)
    Max, Position: Integer;
  end;
  TButton = class(TControl)
    Enabled: Boolean;
  end;
  TForm = class
    Visible: Boolean;
    FormStyle: Integer;
    Controls: Contnrs.TObjectList;
    constructor Create;
    destructor Destroy; override;
    procedure Show;
    procedure Hide;
    procedure Refresh;
    function Handle: Integer;
  end;
  TApplication = class
    procedure ProcessMessages;
  end;

  // The list of global script projects of this host has one entry and no count.
  TRegistry = class
  private
    Opened: Boolean;
  public
    function OpenKey(const Key: string; CanCreate: Boolean): Boolean;
    function ValueExists(const Name: string): Boolean;
    function ReadString(const Name: string): string;
    procedure CloseKey;
  end;

  TProgram = function(const CommandLine: string): Integer;
  TMoment = procedure;

  // How the host treats the output job.
  // InPieces: the archive is written for seconds after the process has returned. HalfThenWhole: an incomplete archive
  // is replaced by the complete one, as a program does that writes another file and renames it.
  TGeneration = (Writes, WritesNothing, WritesEmptyFile, WritesFolder, InPieces, HalfThenWhole);

var
  PCBServer: TPcbServer;
  Client: TClient;
  Application: TApplication;
  LayerUtils: TLayerUtils;

  // set by tests
  Version: Integer;
  Generation: TGeneration;
  GivenArchive: string;     // what the host writes instead of its own archive
  Flaw: TFlaw;              // of the archives that the host writes
  CloseDoesNothing, CloseFails, LookingFails, OpenDoesNothing, ProjectsAreListed, Quitting: Boolean;
  NeverUnloads: string;         // part of a path whose document stays loaded when it is closed
  AppDataFolder, TempFolder, ScriptProject: string;
  AnswerSave, AnswerNoYes: Integer;
  OnMessages, OnGenerate, OnQuestion: TMoment;
  StartProgram: TProgram;
  OnCall: procedure(const Text: string);       // for each line of Calls
  OnPaint: procedure(Form: TForm);             // when the form is drawn
  FormHandle, MainHandle: Integer;             // of the windows
  ProgramRuns: function: Boolean;
  LetProgramsRun: procedure(Milliseconds: Integer);   // returns early when one of them ends
  StopAtCall: Integer;          // the call of the host that stops the interpreter; 0: none
  StopAtMember: string;         // the member of which every call does so; '': none

  // set by the report of a host
  FocusPumps, FocusMilliseconds: Integer;
  ModifiedIsSeen, LayerFlagsAreSeen, SavesAreWritten, NestedIteratorsWork, DocumentsStayLoaded,
    ReopenedAreStale, FileErrorsAreCaught, GlobalsAreKept: Boolean;
  MissingMembers: Classes.TStringList;

  // read by tests
  Calls, Boxes, Questions, Complaints: Classes.TStringList;
  Members: Classes.TStringList;  // of the host, as the script called them, one line for a call
  Stopped: string;               // what stopped the interpreter
  Projects, Documents: Contnrs.TObjectList;
  FrontDocument: IServerDocument;
  OpenIterators, OpenObjectLists, Pauses, Pumps: Integer;
  Milliseconds: Int64;           // of the host's clock

procedure LoadHost(const FileName: string);
procedure RunInInterpreter(Entry: TMoment);
procedure StopInterpreter(const Why: string);
procedure PutInFront(Document: IServerDocument);
procedure Unload(Document: IServerDocument);
procedure ResetHost;
function Called(const Mark: string): Integer;

function GetWorkspace: IWorkspace;
function MkSet(A: Integer): TSet; overload;
function MkSet(A, B, C: Integer): TSet; overload;
function AllObjects: TSet;
function AllLayers: TSet;
function Now: TDateTime;
function GetBuildNumberPart(const Text: string; Part: Integer): Integer;
function GetRunningScriptProjectName: string;
function SpecialFolder_AltiumApplicationData: string;
function SpecialFolder_Temporary: string;
function SpecialFolder_AltiumSystem: string;
function SpecialFolder_AllUserDocuments: string;
function rfReplaceAll: Integer;
function StringReplace(const Text, Old, New: string; const Flags: TSet): string;
procedure ResetParameters;
procedure AddStringParameter(const Name, Value: string);
procedure RunProcess(const Name: string);
function RunApplication(const CommandLine: string): Integer;
function GetErrorMessage(Code: Integer): string;
procedure ShowError(const Text: string);
procedure ShowWarning(const Text: string);
procedure ShowInfo(const Text: string);
function ConfirmNoYes(const Text: string): Boolean;
function ConfirmNoYesCancel(const Text: string): Integer;
procedure Sleep(Milliseconds: Integer);
function GetTickCount: Integer;

implementation

const
  // Ten a second, so that the size is never unchanged for as long as Kestrune.exe requires.
  PiecesOfArchive = 25;
  PieceOfReplacement = 4;

type
  TRunner = record
    Entry: TMoment;
    Done: PRTLEvent;
  end;

var
  Parameters: Classes.TStringList;
  Workspace: IWorkspace;
  Boards: Contnrs.TObjectList;   // all that were made since the last reset
  Runner: TRunner;
  InInterpreter: Boolean;
  HostReport: string;
  ToFront: IServerDocument;      // shown, but the focus has not followed yet
  PumpsToFront: Integer;
  FrontFrom: Int64;
  Stale: Contnrs.TObjectList;    // closed documents that a host keeps which does not read them anew
  FormInFront: TForm;            // the one that was shown last
  ArchivePath: string;           // of an archive that is written in pieces
  WholeArchive: string;
  Pieces: Integer;               // the number of written ones

procedure Call(const Text: string);
begin
  Calls.Add(Text);
  if Assigned(OnCall) then OnCall(Text);
end;

procedure Complain(const Text: string);
begin
  Complaints.Add(Text);
end;

{ the interpreter }

function RunEntry(Unused: Pointer): PtrInt;
begin
  try
    Runner.Entry;
  except
    on E: Exception do Complain('an error reached the host: ' + E.Message);
  end;
  RTLEventSetEvent(Runner.Done);
  Result := 0;
end;

// Runs the script in a thread, which can be ended without any handler of the script. A script that is
// started while the first one handles messages runs inside it, as in the host.
procedure RunInInterpreter(Entry: TMoment);
begin
  if InInterpreter then
  begin
    Entry;
    Exit;
  end;
  Stopped := '';
  InInterpreter := True;
  Runner.Entry := Entry;
  Runner.Done := RTLEventCreate;
  BeginThread(RunEntry);
  RTLEventWaitFor(Runner.Done);
  RTLEventDestroy(Runner.Done);
  InInterpreter := False;
end;

procedure StopInterpreter(const Why: string);
begin
  if not InInterpreter then raise Exception.Create(Why);
  Stopped := Why;
  Call('STOPPED ' + Why);
  // The interpreter frees all objects of the script.
  OpenIterators := 0;
  OpenObjectLists := 0;
  OpenLists := 0;
  OpenFiles.Clear;
  RTLEventSetEvent(Runner.Done);
  EndThread(0);
end;

// Records a call of the script. Every member of the host calls this.
procedure Enter(const Member: string);
begin
  if not InInterpreter then Exit;
  Members.Add(Member);
  if MissingMembers.IndexOf(Member) >= 0 then StopInterpreter('Undeclared identifier: ' + Member);
  if (Members.Count = StopAtCall) or (Member = StopAtMember) then StopInterpreter(Member);
end;

procedure Undeclared(const Name: string);
begin
  Complain('Undeclared identifier: ' + Name);
  StopInterpreter('Undeclared identifier: ' + Name);
end;

procedure FileError(const Where: string);
begin
  if FileErrorsAreCaught or not InInterpreter then raise Exception.Create(Where);
  StopInterpreter(Where);
end;

function Called(const Mark: string): Integer;
var
  I: Integer;
begin
  Result := 0;
  for I := 0 to Calls.Count - 1 do
    if Pos(Mark, Calls[I]) > 0 then Inc(Result);
end;

{ reports }

function Reported(Lines: Classes.TStringList; const Key: string): string;
var
  I: Integer;
begin
  for I := 0 to Lines.Count - 1 do
    if Pos(Key + ' = ', Lines[I]) = 1 then
    begin
      Result := Copy(Lines[I], Length(Key) + 4, Length(Lines[I])) + ' ;';
      Exit(Trim(Copy(Result, 1, Pos(';', Result) - 1)));
    end;
  raise Exception.Create('the report says nothing about ' + Key);
end;

function IsReported(Lines: Classes.TStringList; const Key, Yes, No: string): Boolean;
begin
  Result := Reported(Lines, Key) = Yes;
  if not Result and (Reported(Lines, Key) <> No) then
    raise Exception.Create('the report says neither ' + Yes + ' nor ' + No + ' about ' + Key);
end;

procedure ReadMissingMembers(Lines: Classes.TStringList);
var
  I: Integer;
  Line: string;
begin
  MissingMembers.Clear;
  for I := 0 to Lines.Count - 1 do
  begin
    Line := Lines[I];
    if (Pos('member.', Line) = 1) and (Pos(' = stops', Line) > 0) then
      MissingMembers.Add(Copy(Line, 8, Pos(' = ', Line) - 8));
  end;
end;

procedure ApplyReport;
var
  Lines: Classes.TStringList;
begin
  Lines := Classes.TStringList.Create;
  Lines.LoadFromFile(HostReport);
  Version := StrToInt(Reported(Lines, 'host.major'));
  FocusPumps := StrToInt(Reported(Lines, 'focus.pumps'));
  FocusMilliseconds := StrToInt(Reported(Lines, 'focus.milliseconds'));
  ModifiedIsSeen := IsReported(Lines, 'document.modified', 'changes', 'false');
  SavesAreWritten := IsReported(Lines, 'document.save', 'writes', 'nothing');
  LayerFlagsAreSeen := IsReported(Lines, 'layers.flag', 'objects', 'false');
  NestedIteratorsWork := IsReported(Lines, 'iterators.nested', 'works', 'stops');
  DocumentsStayLoaded := IsReported(Lines, 'close.documents', 'stay', 'go');
  FileErrorsAreCaught := IsReported(Lines, 'error.file', 'caught', 'stops');
  GlobalsAreKept := IsReported(Lines, 'globals.kept', 'yes', 'no');
  ReopenedAreStale := IsReported(Lines, 'reopen.content', 'stale', 'anew');
  OverwritingFails := IsReported(Lines, 'files.overwrite', 'fails', 'works');
  OpenFilesAreRead := IsReported(Lines, 'share.read', 'yes', 'no');
  OpenFilesAreWritten := IsReported(Lines, 'share.write', 'yes', 'no');
  ReadMissingMembers(Lines);
  Lines.Free;
end;

procedure LoadHost(const FileName: string);
begin
  HostReport := FileName;
  ApplyReport;
end;

procedure ResetHost;
begin
  Calls.Clear;
  Boxes.Clear;
  Questions.Clear;
  Complaints.Clear;
  Members.Clear;
  Parameters.Clear;
  Projects.Clear;
  Documents.Clear;
  FrontDocument := nil;
  ToFront := nil;
  PCBServer.Front := nil;
  Stopped := '';
  StopAtCall := 0;
  StopAtMember := '';
  OpenIterators := 0;
  OpenObjectLists := 0;
  Pauses := 0;
  Pumps := 0;
  Generation := Writes;
  ArchivePath := '';
  OnCall := nil;
  OnPaint := nil;
  FormHandle := 65538;
  MainHandle := 131074;
  Flaw := Flawless;
  GivenArchive := '';
  Boards.Clear;
  Stale.Clear;
  OpenFiles.Clear;
  CloseDoesNothing := False;
  CloseFails := False;
  LookingFails := False;
  OpenDoesNothing := False;
  Quitting := False;
  NeverUnloads := '';
  ProjectsAreListed := True;
  AnswerSave := mrYes;
  AnswerNoYes := mrYes;
  OnMessages := nil;
  OnGenerate := nil;
  OnQuestion := nil;
  DiskIsFull := False;
  Forbidden := '';
  OnDelete := nil;
  AppDataFolder := 'C:\Nowhere\AppData\Roaming\Altium\Altium Designer {X}';
  TempFolder := 'C:\Nowhere\';
  ScriptProject := 'C:\Nowhere\Kestrune.PrjScr';
  ApplyReport;
end;

{ objects of a board }

procedure IPCB_Primitive.Use(const Member: string);
begin
  Enter(Member);
  if Dead then StopInterpreter('a dead object: ' + Member);
end;

function IPCB_Rule.Descriptor: string;
begin
  Use('IPCB_Rule.Descriptor');
  Result := Text;
end;

function IPCB_Rule.RuleKind: Integer;
begin
  Use('IPCB_Rule.RuleKind');
  Result := Kind;
end;

function IPCB_Rule.Enabled: Boolean;
begin
  Use('IPCB_Rule.Enabled');
  Result := IsEnabled;
end;

function IPCB_Pad.HoleSize: Integer;
begin
  Use('IPCB_Pad.HoleSize');
  Result := Hole;
end;

function IPCB_Pad.Plated: Boolean;
begin
  Use('IPCB_Pad.Plated');
  Result := IsPlated;
end;

function IPCB_Pad.Layer: Integer;
begin
  Use('IPCB_Pad.Layer');
  Result := LayerNumber;
end;

function IPCB_EmbeddedBoard.DocumentPath: string;
begin
  Use('IPCB_EmbeddedBoard.DocumentPath');
  Result := StoredPath;
end;

function IPCB_EmbeddedBoard.MirrorFlag: Boolean;
begin
  Use('IPCB_EmbeddedBoard.MirrorFlag');
  Result := Mirrored;
end;

function IPCB_EmbeddedBoard.ChildBoard: IPCB_Board;
begin
  Use('IPCB_EmbeddedBoard.ChildBoard');
  Result := Loaded;
end;

class operator TAnyObject.Implicit(const A: TAnyObject): IPCB_Primitive;
begin
  Result := A.Item;
end;

class operator TAnyObject.Implicit(const A: TAnyObject): IPCB_Rule;
begin
  Result := A.Item as IPCB_Rule;
end;

class operator TAnyObject.Implicit(const A: TAnyObject): IPCB_Pad;
begin
  Result := A.Item as IPCB_Pad;
end;

class operator TAnyObject.Implicit(const A: TAnyObject): IPCB_Via;
begin
  Result := A.Item as IPCB_Via;
end;

class operator TAnyObject.Implicit(const A: TAnyObject): IPCB_EmbeddedBoard;
begin
  Result := A.Item as IPCB_EmbeddedBoard;
end;

constructor TObjectList.Create;
begin
  inherited Create(True);
  Inc(OpenObjectLists);
end;

destructor TObjectList.Destroy;
begin
  Dec(OpenObjectLists);
  inherited Destroy;
end;

function TObjectList.GetItem(I: Integer): TAnyObject;
begin
  Result.Item := IPCB_Primitive(inherited Items[I]);
end;

procedure IPCB_BoardIterator.AddFilter_ObjectSet(const S: TSet);
begin
  Enter('IPCB_BoardIterator.AddFilter_ObjectSet');
  Objects := S;
  Inc(Filters);
end;

procedure IPCB_BoardIterator.AddFilter_LayerSet(const S: TSet);
begin
  Enter('IPCB_BoardIterator.AddFilter_LayerSet');
  Layers := S;
  Inc(Filters);
end;

procedure IPCB_BoardIterator.AddFilter_Method(Method: Integer);
begin
  Enter('IPCB_BoardIterator.AddFilter_Method');
  Inc(Filters);
end;

function IPCB_BoardIterator.FirstPCBObject: TAnyObject;
begin
  if Filters <> 3 then Complain('an iterator without all its filters');
  Position := -1;
  Result := NextPCBObject;
end;

function IPCB_BoardIterator.NextPCBObject: TAnyObject;
var
  Item: IPCB_Primitive;
begin
  Enter('IPCB_BoardIterator.NextPCBObject');
  if Board.Dead then StopInterpreter('a dead board');
  Result.Item := nil;
  repeat
    Inc(Position);
    if Position < Board.Objects.Count then
    begin
      Item := IPCB_Primitive(Board.Objects[Position]);
      if (Item.ObjectId in Objects) and (Item.LayerNumber in Layers) then Result.Item := Item;
    end;
  until (Result.Item <> nil) or (Position >= Board.Objects.Count);
end;

function IPCB_LayerObject.V7_LayerID: TLayerId;
begin
  Enter('IPCB_LayerObject.V7_LayerID');
  Result := Number;
end;

function IPCB_LayerObject.UsedByPrims: Boolean;
begin
  Enter('IPCB_LayerObject.UsedByPrims');
  Result := HasPrims;
end;

constructor IPCB_MasterLayerStack.Create;
var
  I: Integer;
begin
  Copper := Contnrs.TObjectList.Create(True);
  Mechanical := Contnrs.TObjectList.Create(True);
  for I := 1 to 1024 do Mechanical.Add(IPCB_MechanicalLayer.Create);
end;

// Any other class of layers would begin with a layer that is not copper.
function IPCB_MasterLayerStack.First(LayerClass: Integer): IPCB_LayerObject;
begin
  Enter('IPCB_MasterLayerStack.First');
  Result := nil;
  if (Copper.Count > 0) and (LayerClass = eLayerClass_Electrical) then
    Result := IPCB_LayerObject(Copper[0]);
end;

function IPCB_MasterLayerStack.Next(LayerClass: Integer; Layer: IPCB_LayerObject): IPCB_LayerObject;
begin
  Enter('IPCB_MasterLayerStack.Next');
  Result := nil;
  if (LayerClass = eLayerClass_Electrical) and (Copper.IndexOf(Layer) + 1 < Copper.Count) then
    Result := IPCB_LayerObject(Copper[Copper.IndexOf(Layer) + 1]);
end;

function IPCB_MasterLayerStack.GetMechanicalLayer(I: Integer): IPCB_MechanicalLayer;
begin
  Enter('IPCB_MasterLayerStack.GetMechanicalLayer');
  if Version < 19 then Undeclared('GetMechanicalLayer');
  Result := IPCB_MechanicalLayer(Mechanical[I - 1]);
end;

function IPCB_MasterLayerStack.LayerObject_V7(Layer: Integer): IPCB_MechanicalLayer;
begin
  Enter('IPCB_MasterLayerStack.LayerObject_V7');
  if Version >= 19 then Undeclared('LayerObject_V7');
  if Layer - 16908288 > 32 then Undeclared('mechanical layer above 32');
  Result := IPCB_MechanicalLayer(Mechanical[Layer - 16908289]);
end;

constructor IPCB_Board.Create(const Path: string);
begin
  Boards.Add(Self);
  FFileName := Path;
  if FileExists(Path) then FContent := ReadBytes(Path);
  FStack := IPCB_MasterLayerStack.Create;
  Objects := Contnrs.TObjectList.Create(True);
  AddCopper(16777217);
  AddCopper(16842751);
end;

procedure IPCB_Board.Use(const Member: string);
begin
  Enter(Member);
  if Dead then StopInterpreter('a dead board: ' + Member);
end;

procedure IPCB_Board.Die;
var
  I: Integer;
begin
  Dead := True;
  for I := 0 to Objects.Count - 1 do IPCB_Primitive(Objects[I]).Dead := True;
end;

procedure IPCB_Board.AddCopper(Id: Integer);
var
  Layer: IPCB_LayerObject;
begin
  Layer := IPCB_LayerObject.Create;
  Layer.Number.ID := Id;
  FStack.Copper.Add(Layer);
end;

procedure IPCB_Board.AddMechanical(I: Integer);
begin
  IPCB_MechanicalLayer(FStack.Mechanical[I - 1]).HasPrims := True;
  if I <= 16 then AddTrack(eMechanical1 + I - 1);
end;

procedure Put(Board: IPCB_Board; Item: IPCB_Primitive; Kind, Layer: Integer);
begin
  Item.ObjectId := Kind;
  Item.LayerNumber := Layer;
  Board.Objects.Add(Item);
  Include(Board.Used, Layer);
end;

procedure IPCB_Board.AddPad(HoleSize, Layer: Integer);
var
  Pad: IPCB_Pad;
begin
  Pad := IPCB_Pad.Create;
  Pad.Hole := HoleSize;
  Pad.IsPlated := True;
  Put(Self, Pad, ePadObject, Layer);
end;

procedure IPCB_Board.AddUnplatedHole;
begin
  AddPad(1250000, eMultiLayer);
  IPCB_Pad(Objects[Objects.Count - 1]).IsPlated := False;
end;

procedure IPCB_Board.AddVia;
begin
  Put(Self, IPCB_Via.Create, eViaObject, eMultiLayer);
end;

procedure IPCB_Board.AddTrack(Layer: Integer);
begin
  Put(Self, IPCB_Primitive.Create, eTrackObject, Layer);
end;

procedure IPCB_Board.AddRule(const Descriptor: string);
var
  Rule: IPCB_Rule;
begin
  Rule := IPCB_Rule.Create;
  Rule.Text := Descriptor;
  Rule.IsEnabled := True;
  Rule.Kind := eRule_Width;
  if Pos('Clearance', Descriptor) = 1 then Rule.Kind := eRule_Clearance;
  Put(Self, Rule, eRuleObject, 0);
end;

procedure IPCB_Board.AddDisabledRule(const Descriptor: string);
begin
  AddRule(Descriptor);
  IPCB_Rule(Objects[Objects.Count - 1]).IsEnabled := False;
end;

function IPCB_Board.AddChild(const DocumentPath: string; Board: IPCB_Board): IPCB_Board;
var
  Child: IPCB_EmbeddedBoard;
begin
  Child := IPCB_EmbeddedBoard.Create;
  Child.StoredPath := DocumentPath;
  Child.Loaded := Board;
  Put(Self, Child, eEmbeddedBoardObject, eMultiLayer);
  Result := Board;
end;

function IPCB_Board.AddMirroredChild(const DocumentPath: string; Board: IPCB_Board): IPCB_Board;
begin
  Result := AddChild(DocumentPath, Board);
  IPCB_EmbeddedBoard(Objects[Objects.Count - 1]).Mirrored := True;
end;

function IPCB_Board.GetFileName: string;
begin
  Use('IPCB_Board.FileName');
  Result := FFileName;
end;

function IPCB_Board.GetStack: IPCB_MasterLayerStack;
begin
  Use('IPCB_Board.MasterLayerStack');
  if Version < 17 then Undeclared('MasterLayerStack');
  Result := FStack;
end;

function IPCB_Board.GetLayerIsUsed(Layer: Integer): Boolean;
begin
  Use('IPCB_Board.LayerIsUsed');
  Result := LayerFlagsAreSeen and (Layer in Used);
end;

procedure IPCB_Board.AddPCBObject(Item: IPCB_Primitive);
begin
  Use('IPCB_Board.AddPCBObject');
  Objects.Add(Item);
end;

function IPCB_Board.BoardIterator_Create: IPCB_BoardIterator;
begin
  Use('IPCB_Board.BoardIterator_Create');
  if (OpenIterators > 0) and not NestedIteratorsWork then
    StopInterpreter('an iterator inside of another one');
  Inc(OpenIterators);
  Result := IPCB_BoardIterator.Create;
  Result.Board := Self;
end;

procedure IPCB_Board.BoardIterator_Destroy(Iterator: IPCB_BoardIterator);
begin
  Use('IPCB_Board.BoardIterator_Destroy');
  if Iterator.Board <> Self then Complain('an iterator destroyed by another board');
  Dec(OpenIterators);
  Iterator.Free;
end;

// Returns the board of the document in front, an empty one unless a test has defined it.
function TPcbServer.GetCurrentPCBBoard: IPCB_Board;
begin
  Enter('IPCB_ServerInterface.GetCurrentPCBBoard');
  Result := nil;
  if FrontDocument = nil then Exit;
  if (FrontDocument.Kind = 'PCB') and (FrontDocument.Board = nil) then
    FrontDocument.Board := IPCB_Board.Create(FrontDocument.Path);
  Result := FrontDocument.Board;
end;

function TPcbServer.PCBObjectFactory(Kind, Dimension, Mode: Integer): IPCB_Primitive;
begin
  Enter('IPCB_ServerInterface.PCBObjectFactory');
  Result := IPCB_Primitive.Create;
  Result.ObjectId := Kind;
  Result.LayerNumber := eTopLayer;
end;

function TLayerUtils.MechanicalLayer(I: Integer): Integer;
begin
  Enter('ILayerUtils.MechanicalLayer');
  Result := 16908288 + I;
end;

{ documents and projects }

procedure IServerDocument.Use(const Member: string);
begin
  Enter(Member);
  if Dead then StopInterpreter('a closed document: ' + Member);
end;

function IServerDocument.GetModified: Boolean;
begin
  Use('IServerDocument.Modified');
  Result := FModified and ModifiedIsSeen;
end;

procedure IServerDocument.SetModified(Value: Boolean);
begin
  Use('IServerDocument.SetModified');
  FModified := Value;
  Inc(ModifiedWrites);
end;

// Saves only for the kind ''. Other kinds are formats, which this host does not know.
function IServerDocument.DoFileSave(const AKind: string): Boolean;
begin
  Use('IServerDocument.DoFileSave');
  Call('save ' + Path);
  Result := SavesAreWritten and (AKind = '') and not ReadOnly;
  if not Result then Exit;
  Inc(Saves);
  FModified := False;
  MakeYounger(Path);
end;

function IDocument.DM_FullPath: string;
begin
  Enter('IDocument.DM_FullPath');
  Result := Path;
end;

constructor IProject.Create(const ProjectPath: string);
var
  Lines: Classes.TStringList;
  Member: IDocument;
  I: Integer;
begin
  Path := ProjectPath;
  Members := Contnrs.TObjectList.Create(True);
  if not FileExists(ProjectPath) then Exit;
  Lines := Classes.TStringList.Create;
  Lines.Text := AnsiToUtf8Text(ReadBytes(ProjectPath));
  for I := 0 to Lines.Count - 1 do
    if Pos('DocumentPath=', Lines[I]) = 1 then
    begin
      Member := IDocument.Create;
      Member.Path := ExtractFilePath(ProjectPath) + Copy(Lines[I], 14, Length(Lines[I]));
      Members.Add(Member);
    end;
  Lines.Free;
end;

function IProject.DM_ProjectFullPath: string;
begin
  Enter('IProject.DM_ProjectFullPath');
  Result := Path;
end;

function IProject.DM_LogicalDocumentCount: Integer;
begin
  Enter('IProject.DM_LogicalDocumentCount');
  Result := Members.Count;
end;

function IProject.DM_LogicalDocuments(I: Integer): IDocument;
begin
  Enter('IProject.DM_LogicalDocuments');
  Result := IDocument(Members[I]);
end;

function IProject.DM_NeedsCompile: Boolean;
begin
  Enter('IProject.DM_NeedsCompile');
  Result := not Compiled;
end;

procedure IProject.DM_Compile;
begin
  Enter('IProject.DM_Compile');
  Call('compile ' + Path);
  Compiled := True;
end;

function IProject.Has(const DocumentPath: string): Boolean;
var
  I: Integer;
begin
  Result := SameText(Path, DocumentPath);
  for I := 0 to Members.Count - 1 do
    if SameText(IDocument(Members[I]).Path, DocumentPath) then Result := True;
end;

function GetWorkspace: IWorkspace;
begin
  Enter('GetWorkspace');
  Result := Workspace;
end;

function IWorkspace.DM_ProjectCount: Integer;
begin
  Enter('IWorkspace.DM_ProjectCount');
  Result := Projects.Count;
end;

function IWorkspace.DM_Projects(I: Integer): IProject;
begin
  Enter('IWorkspace.DM_Projects');
  Result := IProject(Projects[I]);
end;

function FocusedProject: IProject;
var
  I: Integer;
begin
  Result := nil;
  if FrontDocument <> nil then
    for I := 0 to Projects.Count - 1 do
      if IProject(Projects[I]).Has(FrontDocument.Path) then Result := IProject(Projects[I]);
end;

function IWorkspace.DM_FocusedProject: IProject;
begin
  Enter('IWorkspace.DM_FocusedProject');
  Result := FocusedProject;
end;

function IWorkspace.DM_FocusedDocument: IDocument;
var
  I: Integer;
begin
  Enter('IWorkspace.DM_FocusedDocument');
  Result := nil;
  if FocusedProject <> nil then
    for I := 0 to FocusedProject.Members.Count - 1 do
      if SameText(IDocument(FocusedProject.Members[I]).Path, FrontDocument.Path) then
        Result := IDocument(FocusedProject.Members[I]);
end;

function IWorkspace.DM_OpenProject(const Path: string; Show: Boolean): IProject;
begin
  Enter('IWorkspace.DM_OpenProject');
  Call('open project ' + Path);
  Result := nil;
  if OpenDoesNothing or not FileExists(Path) then Exit;
  Result := IProject.Create(Path);
  Projects.Add(Result);
end;

function TClient.GetProductVersion: string;
begin
  Enter('IClient.GetProductVersion');
  Result := IntToStr(Version) + '.1.2.44';
end;

function TClient.MainWindowHandle: Integer;
begin
  Enter('IClient.MainWindowHandle');
  Result := MainHandle;
end;

function FindDocument(const Path: string): IServerDocument;
var
  I: Integer;
begin
  Result := nil;
  for I := 0 to Documents.Count - 1 do
    if SameText(IServerDocument(Documents[I]).Path, Path) then Result := IServerDocument(Documents[I]);
end;

function TClient.GetDocumentByPath(const Path: string): IServerDocument;
begin
  Enter('IClient.GetDocumentByPath');
  Result := FindDocument(Path);
end;

function TClient.IsDocumentOpen(const Path: string): Boolean;
begin
  Enter('IClient.IsDocumentOpen');
  if LookingFails then raise Exception.Create('the host failed');
  Result := FindDocument(Path) <> nil;
end;

function TClient.IsQuitting: Boolean;
begin
  Enter('IClient.IsQuitting');
  Result := Quitting;
end;

procedure TClient.KestruneHasNoSuchMember;
begin
  Enter('IClient.KestruneHasNoSuchMember');
  StopInterpreter('Undeclared identifier: KestruneHasNoSuchMember');
end;

// Returns the board of a document that this host kept in memory after closing it.
function StaleBoard(const Path: string): IPCB_Board;
var
  I: Integer;
begin
  Result := nil;
  for I := 0 to Stale.Count - 1 do
    if SameText(IPCB_Board(Stale[I]).FFileName, Path) then Result := IPCB_Board(Stale[I]);
end;

// Opens a document that is not open yet; accepts only the kinds that real scripts use.
function Open(const Kind, Path: string): IServerDocument;
begin
  Result := FindDocument(Path);
  if (Result <> nil) or not FileExists(Path) or 
    ((Kind <> 'PCB') and (Kind <> 'OUTPUTJOB') and (Kind <> 'Text')) then Exit;
  Result := IServerDocument.Create;
  Result.Board := StaleBoard(Path);
  Result.Path := Path;
  Result.Kind := Kind;
  Result.Loaded := ReadBytes(Path);
  Documents.Add(Result);
end;

function TClient.OpenDocument(const Kind, Path: string): IServerDocument;
begin
  Enter('IClient.OpenDocument');
  Call('open document ' + Path);
  Result := Open(Kind, Path);
end;

procedure PutInFront(Document: IServerDocument);
begin
  FrontDocument := Document;
  ToFront := nil;
end;

procedure MoveFocus;
begin
  if (ToFront = nil) or (PumpsToFront > 0) or (Milliseconds < FrontFrom) then Exit;
  PutInFront(ToFront);
end;

// The focus follows later.
procedure TClient.ShowDocument(Document: IServerDocument);
begin
  Document.Use('IClient.ShowDocument');
  Call('show ' + Document.Path);
  if Document = FrontDocument then
  begin
    ToFront := nil;
    Exit;
  end;
  if Document <> ToFront then
  begin
    PumpsToFront := FocusPumps;
    FrontFrom := Milliseconds + FocusMilliseconds;
  end;
  ToFront := Document;
  MoveFocus;
end;

procedure Unload(Document: IServerDocument);
begin
  Call('closed ' + Document.Path);
  if FrontDocument = Document then FrontDocument := nil;
  if ToFront = Document then ToFront := nil;
  Document.Dead := True;
  if (Document.Board <> nil) and ReopenedAreStale then Stale.Add(Document.Board)
  else if Document.Board <> nil then Document.Board.Die;
  Documents.Extract(Document);
end;

procedure Close(Document: IServerDocument);
begin
  if Document.FModified then
    Complain('the host asked whether to save ' + Document.Path);
  if (NeverUnloads = '') or (Pos(NeverUnloads, Document.Path) = 0) then Unload(Document)
  else if FrontDocument = Document then FrontDocument := nil;
end;

procedure TClient.CloseDocument(Document: IServerDocument);
begin
  Document.Use('IClient.CloseDocument');
  Close(Document);
end;

{ the window }

constructor TControl.Create(Form: TForm; const ControlName: string);
begin
  Name := ControlName;
  Form.Controls.Add(Self);
end;

constructor TForm.Create;
begin
  Controls := Contnrs.TObjectList.Create(True);
end;

destructor TForm.Destroy;
begin
  if FormInFront = Self then FormInFront := nil;
  Controls.Free;
  inherited;
end;

procedure Paint;
begin
  if Assigned(OnPaint) and (FormInFront <> nil) then OnPaint(FormInFront);
end;

procedure TForm.Show;
begin
  Enter('TForm.Show');
  Call('show window');
  Visible := True;
  FormInFront := Self;
  Paint;
end;

procedure TForm.Hide;
begin
  Enter('TForm.Hide');
  Call('hide window');
  Visible := False;
  Paint;
end;

procedure TForm.Refresh;
begin
  Enter('TForm.Refresh');
  Paint;
end;

function TForm.Handle: Integer;
begin
  Enter('TForm.Handle');
  Result := FormHandle;
end;

// Continues to write the archive while the script runs.
procedure WriteNextPiece;
begin
  if ArchivePath = '' then Exit;
  Inc(Pieces);
  if Generation = HalfThenWhole then
  begin
    if Pieces < PieceOfReplacement then Exit;
    WriteBytes(ArchivePath + '.new', WholeArchive);
    if not RenameFile(UnixPath(ArchivePath + '.new'), UnixPath(ArchivePath)) then
      Complain('the archive cannot be replaced');
    ArchivePath := '';
  end
  else WriteBytes(ArchivePath, Copy(WholeArchive, 1, Length(WholeArchive) * Pieces div PiecesOfArchive));
  if Pieces = PiecesOfArchive then ArchivePath := '';
end;

procedure TApplication.ProcessMessages;
begin
  Enter('TApplication.ProcessMessages');
  Inc(Pumps);
  Dec(PumpsToFront);
  MoveFocus;
  WriteNextPiece;
  Paint;
  if Assigned(OnMessages) then OnMessages;
end;

{ processes of the host }

procedure ResetParameters;
begin
  Enter('ResetParameters');
  Parameters.Clear;
end;

procedure AddStringParameter(const Name, Value: string);
begin
  Enter('AddStringParameter');
  Parameters.Values[Name] := Value;
end;

function JobValue(Job: Classes.TStringList; const Key: string): string;
var
  I: Integer;
begin
  Result := '';
  for I := 0 to Job.Count - 1 do
    if Pos(Key + '=', Job[I]) = 1 then Result := Copy(Job[I], Length(Key) + 2, Length(Job[I]));
end;

// Returns the content of a member of the project; a loaded document is not read again.
function ContentOf(const Path: string): string;
var
  Document: IServerDocument;
begin
  Document := FindDocument(Path);
  if Document = nil then Document := Open('PCB', Path);
  Result := 'missing';
  if Document <> nil then Result := Document.Loaded;
end;

// Adds a board and all boards embedded in it, with their objects.
procedure AddWithChildren(Board: IPCB_Board; Found, Objects: Contnrs.TObjectList);
var
  I: Integer;
begin
  if (Board = nil) or (Found.IndexOf(Board) >= 0) then Exit;
  Found.Add(Board);
  for I := 0 to Board.Objects.Count - 1 do
  begin
    Objects.Add(Board.Objects[I]);
    if Board.Objects[I] is IPCB_EmbeddedBoard then
      AddWithChildren(IPCB_EmbeddedBoard(Board.Objects[I]).Loaded, Found, Objects);
  end;
end;

// Finds the boards whose copy is exported, and their objects: the copy has the content of the original.
procedure FindExported(const Content: string; Found, Objects: Contnrs.TObjectList);
var
  I: Integer;
begin
  for I := Boards.Count - 1 downto 0 do
    if (Found.Count = 0) and (IPCB_Board(Boards[I]).FContent = Content) then
      AddWithChildren(IPCB_Board(Boards[I]), Found, Objects);
end;

function HasCopper(List: Contnrs.TObjectList; Id, OldId: Integer): Boolean;
var
  I, J, Found: Integer;
begin
  Result := False;
  for I := 0 to List.Count - 1 do
    for J := 0 to IPCB_Board(List[I]).FStack.Copper.Count - 1 do
    begin
      Found := IPCB_LayerObject(IPCB_Board(List[I]).FStack.Copper[J]).Number.ID;
      if (Found = Id) or (Found = OldId) then Result := True;
    end;
end;

function HasMechanical(List: Contnrs.TObjectList; Number: Integer): Boolean;
var
  I: Integer;
begin
  Result := False;
  for I := 0 to List.Count - 1 do
    if IPCB_MechanicalLayer(IPCB_Board(List[I]).FStack.Mechanical[Number - 1]).HasPrims then
      Result := True;
end;

// Returns whether there is a track on a layer.
function IsDrawn(Objects: Contnrs.TObjectList; Layer: Integer): Boolean;
var
  I: Integer;
begin
  Result := False;
  for I := 0 to Objects.Count - 1 do
    with IPCB_Primitive(Objects[I]) do
      if (ObjectId = eTrackObject) and (LayerNumber = Layer) then Result := True;
end;

function HasHole(Objects: Contnrs.TObjectList; Plated: Boolean): Boolean;
var
  I: Integer;
begin
  Result := False;
  for I := 0 to Objects.Count - 1 do
  begin
    if (Objects[I] is IPCB_Via) and Plated then Result := True;
    if Objects[I] is IPCB_Pad then
      if (IPCB_Pad(Objects[I]).Hole > 0) and (IPCB_Pad(Objects[I]).IsPlated = Plated) then Result := True;
  end;
end;

// Returns the number in a key such as 'PlotMidLayer3Plot'; 0 for any other key.
function NumberIn(const Key, Start: string): Integer;
begin
  Result := 0;
  if Pos(Start, Key) = 1 then
    Result := StrToIntDef(StringReplace(Copy(Key, Length(Start) + 1, 9), 'Plot', '', []), 0);
end;

procedure AddCopperLayer(Archive: TArchive; const Key: string; List: Contnrs.TObjectList);
var
  Mid, Plane: Integer;
begin
  Mid := NumberIn(Key, 'PlotMidLayer');
  Plane := NumberIn(Key, 'PlotInternalPlane');
  if (Key = 'PlotTopLayerPlot') and HasCopper(List, 16777217, 1) then
    Archive.AddLayer('SIGNAL', 'top_layer', True);
  if (Mid > 0) and HasCopper(List, 16777217 + Mid, 1 + Mid) then
    Archive.AddLayer('SIGNAL', 'mid_layer_' + IntToStr(Mid), False);
  if (Plane > 0) and HasCopper(List, 16842752 + Plane, 38 + Plane) then
    Archive.AddLayer('POWER_GROUND', 'internal_plane_' + IntToStr(Plane), False);
  if (Key = 'PlotBottomLayerPlot') and HasCopper(List, 16842751, 32) then
    Archive.AddLayer('SIGNAL', 'bottom_layer', True);
end;

procedure AddOtherLayer(Archive: TArchive; const Key: string; List, Objects: Contnrs.TObjectList);
var
  Mechanical: Integer;
begin
  if Key = 'PlotTopOverlayPlot' then Archive.AddLayer('SILK_SCREEN', 'top_overlay', IsDrawn(Objects, eTopOverlay));
  if Key = 'PlotBottomOverlayPlot' then
    Archive.AddLayer('SILK_SCREEN', 'bottom_overlay', IsDrawn(Objects, eBottomOverlay));
  if Key = 'PlotTopPastePlot' then Archive.AddLayer('SOLDER_PASTE', 'top_paste', IsDrawn(Objects, eTopPaste));
  if Key = 'PlotBottomPastePlot' then
    Archive.AddLayer('SOLDER_PASTE', 'bottom_paste', IsDrawn(Objects, eBottomPaste));
  if Key = 'PlotTopSolderPlot' then Archive.AddLayer('SOLDER_MASK', 'top_solder', IsDrawn(Objects, eTopSolder));
  if Key = 'PlotBottomSolderPlot' then
    Archive.AddLayer('SOLDER_MASK', 'bottom_solder', IsDrawn(Objects, eBottomSolder));
  if (Key = 'PlotPTHPair0_Plot') and HasHole(Objects, True) then
    Archive.AddLayer('DRILL', 'drill_plated_bottom_layer-top_layer', True);
  if (Key = 'PlotNPTHPair0_Plot') and HasHole(Objects, False) then
    Archive.AddLayer('DRILL', 'drill_non-plated_bottom_layer-top_layer', True);
  if Key = 'PlotKeepOutLayerPlot' then Archive.AddLayer('DOCUMENT', 'keep-out_layer', True);
  if Key = 'PlotDrillDrawingPair0_Plot' then Archive.AddLayer('DOCUMENT', 'drill_drawing', True);
  Mechanical := NumberIn(Key, 'PlotMechanical');
  if Mechanical = 0 then Mechanical := NumberIn(Key, 'Mechanical Layer ');
  if Mechanical > 0 then
    if HasMechanical(List, Mechanical) then
      Archive.AddLayer('DOCUMENT', 'mechanical_' + IntToStr(Mechanical), True);
end;

// Returns the archive that the fields which are switched on produce of the boards. A file in it, for the tests,
// lists these fields and the boards.
function OdbArchive(Fields: Classes.TStringList; Project: IProject): string;
var
  Archive: TArchive;
  List, Objects: Contnrs.TObjectList;
  I: Integer;
  Text, Key, Path: string;
begin
  Archive := TArchive.Create;
  Archive.Flaw := Flaw;
  Text := '';
  List := Contnrs.TObjectList.Create(False);
  Objects := Contnrs.TObjectList.Create(False);
  FindExported(ContentOf(ExtractFilePath(Project.Path) + 'Bridge.PcbDoc'), List, Objects);
  for I := 0 to Fields.Count - 1 do
  begin
    Key := Fields.Names[I];
    if (Fields.ValueFromIndex[I] <> 'True') or (Pos('Plot', Key) <> 1) then Continue;
    if Pos('Plot_V7_', Key) = 1 then Key := Fields.Values[Key + '_name'];
    Text := Text + Key + #10;
    AddCopperLayer(Archive, Key, List);
    AddOtherLayer(Archive, Key, List, Objects);
  end;
  for I := 0 to Project.Members.Count - 1 do
  begin
    Path := IDocument(Project.Members[I]).Path;
    if Pos('.PcbDoc', Path) > 0 then Text := Text + ContentOf(Path) + #10;
  end;
  Archive.AddFile('input/fields', #10 + Text);
  Result := Archive.Bytes;
  Archive.Free;
  List.Free;
  Objects.Free;
end;

// Begins to write the archive; the rest is written while the host handles messages.
procedure BeginArchive(const Path, Bytes: string);
begin
  Pieces := 1;
  WholeArchive := Bytes;
  ArchivePath := '';
  if (Generation = InPieces) or (Generation = HalfThenWhole) then ArchivePath := Path;
  if Generation = InPieces then WriteBytes(Path, Copy(Bytes, 1, Length(Bytes) div PiecesOfArchive))
  else if Generation = HalfThenWhole then WriteBytes(Path, Copy(Bytes, 1, Length(Bytes) div 2))
  else WriteBytes(Path, Bytes);
end;

procedure WriteArchive(Project: IProject; Job: Classes.TStringList; const Folder: string);
var
  Fields: Classes.TStringList;
begin
  Fields := Classes.TStringList.Create;
  Fields.StrictDelimiter := True;
  Fields.Delimiter := '|';
  Fields.QuoteChar := #1;
  Fields.DelimitedText := JobValue(Job, 'Configuration1_Item1');
  if Fields.Values['Compression_zip'] <> 'True' then Complain('the output job does not ask for a ZIP');
  if Generation = WritesFolder then WriteBytes(Folder + '\odb\matrix\matrix', '')
  else if Generation = WritesEmptyFile then WriteBytes(Folder + '\Bridge.zip', '')
  else if GivenArchive <> '' then BeginArchive(Folder + '\Bridge.zip', GivenArchive)
  else BeginArchive(Folder + '\Bridge.zip', OdbArchive(Fields, Project));
  Fields.Free;
end;

function ContainerOf(Job: Classes.TStringList; const Name: string): string;
var
  I: Integer;
begin
  Result := '';
  for I := 1 to 9 do
    if (JobValue(Job, 'OutputMedium' + IntToStr(I)) = Name)
      and (JobValue(Job, 'OutputMedium' + IntToStr(I) + '_Type') = 'GeneratedFiles') then
      Result := IntToStr(I);
end;

// Like the host, writes nothing and reports nothing when something is missing.
procedure Generate;
var
  Project: IProject;
  Job: Classes.TStringList;
  Container, Base: string;
begin
  if FrontDocument = nil then Call('generate ' + Parameters.Values['OutputMedium'] + ' of nothing')
  else Call('generate ' + Parameters.Values['OutputMedium'] + ' of ' + FrontDocument.Path);
  Project := FocusedProject;
  if Assigned(OnGenerate) then OnGenerate;
  if (FrontDocument = nil) or (Project = nil) or (FrontDocument.Kind <> 'OUTPUTJOB') then Exit;
  if not Project.Has(FrontDocument.Path) then Exit;
  if (Parameters.Values['Action'] <> 'Run') or (Parameters.Values['ObjectKind'] <> 'OutputBatch') then
    Exit;
  Job := Classes.TStringList.Create;
  Job.Text := FrontDocument.Loaded;
  Container := ContainerOf(Job, Parameters.Values['OutputMedium']);
  if (Container <> '') and (JobValue(Job, 'OutputType1') = 'ODB')
    and (JobValue(Job, 'OutputEnabled1_OutputMedium' + Container) = '1')
    and FileExists(ExtractFilePath(Project.Path) + JobValue(Job, 'OutputDocumentPath1'))
    and (Generation <> WritesNothing) then
  begin
    Base := ExtractFilePath(Project.Path) + JobValue(Job, 'OutputBasePath' + Container);
    if JobValue(Job, 'OutputPathOutputer' + Container) = '[Output Type]' then Base := Base + '\ODB';
    WriteArchive(Project, Job, Base);
  end;
  // The host marks the documents that it used as changed.
  Open('PCB', ExtractFilePath(Project.Path) + 'Bridge.PcbDoc').FModified := True;
  FrontDocument.FModified := True;
  Job.Free;
end;

procedure CloseDocumentsOf(Project: IProject);
var
  I: Integer;
begin
  for I := Documents.Count - 1 downto 0 do
    if Project.Has(IServerDocument(Documents[I]).Path) then
      if not DocumentsStayLoaded or (IServerDocument(Documents[I]).Kind = 'OUTPUTJOB') then
        Close(IServerDocument(Documents[I]));
end;

// Only the kinds that real scripts use; any other does nothing.
procedure CloseObject;
var
  Project: IProject;
  Kind: string;
begin
  Kind := Parameters.Values['ObjectKind'];
  Project := FocusedProject;
  if Project = nil then Call('close ' + Kind + ' of nothing')
  else Call('close ' + Kind + ' of ' + Project.Path);
  if CloseFails then raise Exception.Create('the host failed');
  if (Project = nil) or CloseDoesNothing then Exit;
  if (Kind = 'FocusedProjectAndDocuments') or (Kind = 'FocusedProjectDocuments') then
    CloseDocumentsOf(Project);
  if (Kind = 'FocusedProjectAndDocuments') or (Kind = 'FocusedProject') then Projects.Remove(Project);
end;

procedure RunProcess(const Name: string);
begin
  Enter('RunProcess');
  if Name = 'WorkspaceManager:GenerateReport' then Generate
  else if Name = 'WorkspaceManager:CloseObject' then CloseObject
  else Complain('unknown process ' + Name);
end;

function RunApplication(const CommandLine: string): Integer;
begin
  Enter('RunApplication');
  Call('run ' + CommandLine);
  Result := StartProgram(CommandLine);
end;

function GetErrorMessage(Code: Integer): string;
begin
  Enter('GetErrorMessage');
  Result := 'error ' + IntToStr(Code);
end;

procedure ShowBox(const Member, Kind, Text: string);
begin
  Enter(Member);
  Call('box ' + Kind + ': ' + Text);
  Boxes.Add(Kind + ': ' + Text);
end;

procedure ShowError(const Text: string);
begin
  ShowBox('ShowError', 'error', Text);
end;

procedure ShowWarning(const Text: string);
begin
  ShowBox('ShowWarning', 'warning', Text);
end;

procedure ShowInfo(const Text: string);
begin
  ShowBox('ShowInfo', 'info', Text);
end;

procedure Ask(const Text: string);
begin
  Call('question ' + Text);
  Questions.Add(Text);
  if Assigned(OnQuestion) then OnQuestion;
end;

function ConfirmNoYes(const Text: string): Boolean;
begin
  Enter('ConfirmNoYes');
  Ask(Text);
  Result := AnswerNoYes = mrYes;
end;

function ConfirmNoYesCancel(const Text: string): Integer;
begin
  Enter('ConfirmNoYesCancel');
  Ask(Text);
  Result := AnswerSave;
end;

function MkSet(A: Integer): TSet;
begin
  Result := [Byte(A)];
end;

function MkSet(A, B, C: Integer): TSet;
begin
  Result := [Byte(A), Byte(B), Byte(C)];
end;

function AllObjects: TSet;
begin
  Result := [0..255];
end;

function AllLayers: TSet;
begin
  Result := [0..255];
end;

function GetBuildNumberPart(const Text: string; Part: Integer): Integer;
begin
  Enter('GetBuildNumberPart');
  Result := StrToIntDef(Copy(Text, 1, Pos('.', Text) - 1), 0);
end;

function GetRunningScriptProjectName: string;
begin
  Enter('GetRunningScriptProjectName');
  if Version < 19 then Undeclared('GetRunningScriptProjectName');
  Result := ScriptProject;
end;

function SpecialFolder_AltiumApplicationData: string;
begin
  Enter('SpecialFolder_AltiumApplicationData');
  Result := AppDataFolder;
end;

function SpecialFolder_Temporary: string;
begin
  Enter('SpecialFolder_Temporary');
  Result := TempFolder;
end;

function SpecialFolder_AltiumSystem: string;
begin
  Enter('SpecialFolder_AltiumSystem');
  Result := 'C:\Nowhere\System';
end;

function SpecialFolder_AllUserDocuments: string;
begin
  Enter('SpecialFolder_AllUserDocuments');
  Result := 'C:\users\Public\Documents\';
end;

function rfReplaceAll: Integer;
begin
  Result := 0;
end;

function StringReplace(const Text, Old, New: string; const Flags: TSet): string;
begin
  Result := SysUtils.StringReplace(Text, Old, New, [SysUtils.rfReplaceAll]);
end;

function TRegistry.OpenKey(const Key: string; CanCreate: Boolean): Boolean;
begin
  Enter('TRegistry.OpenKey');
  Opened := not CanCreate and (Pos('Software\Altium\', Key) = 1);
  Result := Opened;
end;

function TRegistry.ValueExists(const Name: string): Boolean;
begin
  Enter('TRegistry.ValueExists');
  Result := Opened and (Name = 'Item0');
end;

function TRegistry.ReadString(const Name: string): string;
begin
  Enter('TRegistry.ReadString');
  Result := '';
end;

procedure TRegistry.CloseKey;
begin
  Enter('TRegistry.CloseKey');
  Opened := False;
end;

// Waits in real time only while a started program runs. Otherwise nothing can change, so that a time-out of minutes
// takes no time.
procedure Sleep(Milliseconds: Integer);
begin
  Inc(Pauses);
  HostStandIn.Milliseconds := HostStandIn.Milliseconds + Milliseconds;
  if ProgramRuns then LetProgramsRun(Milliseconds);
end;

function Now: TDateTime;
begin
  Result := 45000 + Milliseconds / 86400000;
end;

function GetTickCount: Integer;
begin
  Inc(Milliseconds);
  Result := Milliseconds;
end;

initialization
  Calls := Classes.TStringList.Create;
  Boxes := Classes.TStringList.Create;
  Questions := Classes.TStringList.Create;
  Complaints := Classes.TStringList.Create;
  Members := Classes.TStringList.Create;
  MissingMembers := Classes.TStringList.Create;
  MissingMembers.CaseSensitive := True;
  Parameters := Classes.TStringList.Create;
  Projects := Contnrs.TObjectList.Create(False);
  Documents := Contnrs.TObjectList.Create(False);
  Workspace := IWorkspace.Create;
  Boards := Contnrs.TObjectList.Create(False);
  Stale := Contnrs.TObjectList.Create(False);
  PCBServer := TPcbServer.Create;
  Client := TClient.Create;
  Application := TApplication.Create;
  LayerUtils := TLayerUtils.Create;
  OnFileError := FileError;
  Milliseconds := 1000000;
end.
