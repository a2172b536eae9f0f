unit HostStandIn;
{$mode delphi}{$H+}
// The host's scripting interface as far as the script uses it, with the host's names, parameters and
// ways of failing. Every call goes into Calls; a member that the host's version does not have, and
// every question about unsaved changes that the script provokes, goes into Complaints.

interface

uses SysUtils, Classes, Contnrs, HostFiles;

const
  eTopLayer = 1; eMidLayer1 = 2; eBottomLayer = 32; eTopOverlay = 33; eBottomOverlay = 34;
  eTopPaste = 35; eBottomPaste = 36; eTopSolder = 37; eBottomSolder = 38; eInternalPlane1 = 39;
  eDrillGuide = 55; eKeepOutLayer = 56; eMechanical1 = 57; eDrillDrawing = 73; eMultiLayer = 74;
  eViaObject = 3; ePadObject = 2; eRuleObject = 16; eEmbeddedBoardObject = 26;
  eProcessAll = 0;
  AllLayers = -1;
  eLayerClass_Electrical = 3;
  mrYes = 6; mrNo = 7; mrCancel = 2;
  fsNormal = 0; fsStayOnTop = 3;

type
  TDynamicString = string;
  TObjectSet = set of Byte;
  TCloseAction = (caNone, caHide, caFree, caMinimize);

  IPCB_Primitive = class
    ObjectId: Integer;
    Descriptor: string;
  end;
  IPCB_Pad = class(IPCB_Primitive)
    HoleSize: Integer;
    Layer: Integer;
  end;
  IPCB_Via = class(IPCB_Primitive)
    HoleSize: Integer;
  end;
  IPCB_Board = class;
  IPCB_EmbeddedBoard = class(IPCB_Primitive)
    DocumentPath: string;
    ChildBoard: IPCB_Board;
  end;

  // What an iterator answers: any object, which the variable's type must fit.
  TAnyObject = record
    Item: IPCB_Primitive;
    class operator Implicit(const A: TAnyObject): IPCB_Primitive;
    class operator Implicit(const A: TAnyObject): IPCB_Pad;
    class operator Implicit(const A: TAnyObject): IPCB_Via;
    class operator Implicit(const A: TAnyObject): IPCB_EmbeddedBoard;
  end;

  IPCB_BoardIterator = class
    Board: IPCB_Board;
    Objects: TObjectSet;
    Filters: Integer;
    Position: Integer;
    procedure AddFilter_ObjectSet(const S: TObjectSet);
    procedure AddFilter_LayerSet(Layers: Integer);
    procedure AddFilter_Method(Method: Integer);
    function NextPCBObject: TAnyObject;
    function FirstPCBObject: TAnyObject;
  end;

  TLayerId = record
    ID: Integer;
  end;
  IPCB_LayerObject = class
    Number: TLayerId;
    UsedByPrims: Boolean;
    function V7_LayerID: TLayerId;
  end;
  IPCB_MechanicalLayer = class(IPCB_LayerObject)
  end;
  IPCB_MasterLayerStack = class
    Copper: TObjectList;
    Mechanical: TObjectList;   // of the layers 1 to 1024
    constructor Create;
    function First(LayerClass: Integer): IPCB_LayerObject;
    function Next(LayerClass: Integer; Layer: IPCB_LayerObject): IPCB_LayerObject;
    function GetMechanicalLayer(I: Integer): IPCB_MechanicalLayer;
    function LayerObject_V7(Layer: Integer): IPCB_MechanicalLayer;
  end;
  IPCB_Board = class
  private
    FFileName: string;
    FStack: IPCB_MasterLayerStack;
    function GetStack: IPCB_MasterLayerStack;
    function GetLayerIsUsed(Layer: Integer): Boolean;
  public
    Objects: TObjectList;
    Used: set of Byte;
    constructor Create(const Path: string);
    // what tests say about a board
    procedure AddCopper(Id: Integer);
    procedure AddMechanical(I: Integer);
    procedure AddPad(HoleSize, Layer: Integer);
    procedure AddVia;
    procedure AddRule(const Descriptor: string);
    function AddChild(const DocumentPath: string; Board: IPCB_Board): IPCB_Board;
    // what the script sees
    property FileName: string read FFileName;
    property MasterLayerStack: IPCB_MasterLayerStack read GetStack;
    property LayerIsUsed[Layer: Integer]: Boolean read GetLayerIsUsed;
    function BoardIterator_Create: IPCB_BoardIterator;
    procedure BoardIterator_Destroy(Iterator: IPCB_BoardIterator);
  end;

  TPcbServer = class
    Front: IPCB_Board;
    function GetCurrentPCBBoard: IPCB_Board;
  end;
  TLayerUtils = class
    function MechanicalLayer(I: Integer): Integer;
  end;

  IServerDocument = class
  private
    FModified: Boolean;
    procedure SetModified(Value: Boolean);
  public
    Path, Kind: string;
    ReadOnly: Boolean;
    Saves, ModifiedWrites: Integer;
    function DoFileSave(const AKind: string): Boolean;
    property Modified: Boolean read FModified write SetModified;
  end;

  IDocument = class
    Path: string;
    function DM_FullPath: string;
  end;
  IProject = class
    Path: string;
    Members: TObjectList;
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
    function DM_OpenProject(const Path: string; Show: Boolean): IProject;
  end;
  TClient = class
    function GetProductVersion: string;
    function MainWindowHandle: Integer;
    function GetDocumentByPath(const Path: string): IServerDocument;
    function OpenDocument(const Kind, Path: string): IServerDocument;
    procedure ShowDocument(Document: IServerDocument);
    procedure CloseDocument(Document: IServerDocument);
  end;

  TLabel = class
    Caption: string;
  end;
  TProgressBar = class
    Max, Position: Integer;
  end;
  TButton = class
    Enabled: Boolean;
  end;
  TForm = class
    Visible: Boolean;
    FormStyle: Integer;
    procedure Show;
    procedure Hide;
    procedure Refresh;
    function Handle: Integer;
  end;
  TApplication = class
    procedure ProcessMessages;
  end;

  TProgram = function(const CommandLine: string): Integer;
  TMoment = procedure;

  // How the host treats the output job.
  TGeneration = (Writes, WritesNothing, WritesEmptyFile);

var
  PCBServer: TPcbServer;
  Client: TClient;
  Application: TApplication;
  LayerUtils: TLayerUtils;

  // what tests set
  Version: Integer;
  Generation: TGeneration;
  CloseDoesNothing, CloseFails, OpenDoesNothing, ProjectsAreListed: Boolean;
  AppDataFolder, TempFolder, ScriptProject: string;
  AnswerSave, AnswerNoYes: Integer;
  OnMessages, OnGenerate: TMoment;
  StartProgram: TProgram;
  ProgramRuns: function: Boolean;

  // what tests look at
  Calls, Boxes, Questions, Complaints: Classes.TStringList;
  Projects, Documents: TObjectList;
  FrontDocument: IServerDocument;
  OpenIterators, Pauses: Integer;

procedure ResetHost;
function Called(const Mark: string): Integer;

function GetWorkspace: IWorkspace;
function MkSet(A: Integer): TObjectSet;
function GetBuildNumberPart(const Text: string; Part: Integer): Integer;
function GetRunningScriptProjectName: string;
function SpecialFolder_AltiumApplicationData: string;
function SpecialFolder_Temporary: string;
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

var
  Parameters: Classes.TStringList;
  Workspace: IWorkspace;
  Ticks: Integer;

procedure Call(const Text: string);
begin
  Calls.Add(Text);
end;

procedure Complain(const Text: string);
begin
  Complaints.Add(Text);
end;

// The real host stops the script in its debugger and no handler of the script sees it.
procedure Undeclared(const Name: string);
begin
  Complain('Undeclared identifier: ' + Name);
  raise Exception.Create('Undeclared identifier: ' + Name);
end;

function Called(const Mark: string): Integer;
var
  I: Integer;
begin
  Result := 0;
  for I := 0 to Calls.Count - 1 do
    if Pos(Mark, Calls[I]) > 0 then Inc(Result);
end;

procedure ResetHost;
begin
  Calls.Clear;
  Boxes.Clear;
  Questions.Clear;
  Complaints.Clear;
  Parameters.Clear;
  Projects.Clear;
  Documents.Clear;
  FrontDocument := nil;
  PCBServer.Front := nil;
  OpenIterators := 0;
  Pauses := 0;
  Version := 24;
  Generation := Writes;
  CloseDoesNothing := False;
  CloseFails := False;
  OpenDoesNothing := False;
  ProjectsAreListed := True;
  AnswerSave := mrYes;
  AnswerNoYes := mrYes;
  OnMessages := nil;
  OnGenerate := nil;
  DiskIsFull := False;
  OnDelete := nil;
  AppDataFolder := 'C:\Nowhere\AppData\Roaming\Altium\Altium Designer {X}';
  TempFolder := 'C:\Nowhere\';
  ScriptProject := 'C:\Nowhere\Kestrune.PrjScr';
end;

{ objects of a board }

class operator TAnyObject.Implicit(const A: TAnyObject): IPCB_Primitive;
begin
  Result := A.Item;
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

procedure IPCB_BoardIterator.AddFilter_ObjectSet(const S: TObjectSet);
begin
  Objects := S;
  Inc(Filters);
end;

procedure IPCB_BoardIterator.AddFilter_LayerSet(Layers: Integer);
begin
  Inc(Filters);
end;

procedure IPCB_BoardIterator.AddFilter_Method(Method: Integer);
begin
  Inc(Filters);
end;

function IPCB_BoardIterator.FirstPCBObject: TAnyObject;
begin
  if Filters <> 3 then Complain('an iterator without all its filters');
  Position := -1;
  Result := NextPCBObject;
end;

function IPCB_BoardIterator.NextPCBObject: TAnyObject;
begin
  Result.Item := nil;
  repeat
    Inc(Position);
    if Position < Board.Objects.Count then
      if IPCB_Primitive(Board.Objects[Position]).ObjectId in Objects then
        Result.Item := IPCB_Primitive(Board.Objects[Position]);
  until (Result.Item <> nil) or (Position >= Board.Objects.Count);
end;

function IPCB_LayerObject.V7_LayerID: TLayerId;
begin
  Result := Number;
end;

constructor IPCB_MasterLayerStack.Create;
var
  I: Integer;
begin
  Copper := TObjectList.Create(True);
  Mechanical := TObjectList.Create(True);
  for I := 1 to 1024 do Mechanical.Add(IPCB_MechanicalLayer.Create);
end;

function IPCB_MasterLayerStack.First(LayerClass: Integer): IPCB_LayerObject;
begin
  Result := nil;
  if Copper.Count > 0 then Result := IPCB_LayerObject(Copper[0]);
end;

function IPCB_MasterLayerStack.Next(LayerClass: Integer; Layer: IPCB_LayerObject): IPCB_LayerObject;
begin
  Result := nil;
  if Copper.IndexOf(Layer) + 1 < Copper.Count then
    Result := IPCB_LayerObject(Copper[Copper.IndexOf(Layer) + 1]);
end;

function IPCB_MasterLayerStack.GetMechanicalLayer(I: Integer): IPCB_MechanicalLayer;
begin
  if Version < 19 then Undeclared('GetMechanicalLayer');
  Result := IPCB_MechanicalLayer(Mechanical[I - 1]);
end;

function IPCB_MasterLayerStack.LayerObject_V7(Layer: Integer): IPCB_MechanicalLayer;
begin
  if Version >= 19 then Undeclared('LayerObject_V7');
  if Layer - 16908288 > 32 then Undeclared('mechanical layer above 32');
  Result := IPCB_MechanicalLayer(Mechanical[Layer - 16908289]);
end;

constructor IPCB_Board.Create(const Path: string);
begin
  FFileName := Path;
  FStack := IPCB_MasterLayerStack.Create;
  Objects := TObjectList.Create(True);
  AddCopper(16777217);
  AddCopper(16842751);
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
  IPCB_MechanicalLayer(FStack.Mechanical[I - 1]).UsedByPrims := True;
  if I <= 16 then Include(Used, eMechanical1 + I - 1);
end;

procedure IPCB_Board.AddPad(HoleSize, Layer: Integer);
var
  Pad: IPCB_Pad;
begin
  Pad := IPCB_Pad.Create;
  Pad.ObjectId := ePadObject;
  Pad.HoleSize := HoleSize;
  Pad.Layer := Layer;
  Objects.Add(Pad);
end;

procedure IPCB_Board.AddVia;
var
  Via: IPCB_Via;
begin
  Via := IPCB_Via.Create;
  Via.ObjectId := eViaObject;
  Via.HoleSize := 120000;
  Objects.Add(Via);
end;

procedure IPCB_Board.AddRule(const Descriptor: string);
var
  Rule: IPCB_Primitive;
begin
  Rule := IPCB_Primitive.Create;
  Rule.ObjectId := eRuleObject;
  Rule.Descriptor := Descriptor;
  Objects.Add(Rule);
end;

function IPCB_Board.AddChild(const DocumentPath: string; Board: IPCB_Board): IPCB_Board;
var
  Child: IPCB_EmbeddedBoard;
begin
  Child := IPCB_EmbeddedBoard.Create;
  Child.ObjectId := eEmbeddedBoardObject;
  Child.DocumentPath := DocumentPath;
  Child.ChildBoard := Board;
  Objects.Add(Child);
  Result := Board;
end;

function IPCB_Board.GetStack: IPCB_MasterLayerStack;
begin
  if Version < 17 then Undeclared('MasterLayerStack');
  Result := FStack;
end;

function IPCB_Board.GetLayerIsUsed(Layer: Integer): Boolean;
begin
  Result := Layer in Used;
end;

function IPCB_Board.BoardIterator_Create: IPCB_BoardIterator;
begin
  Inc(OpenIterators);
  Result := IPCB_BoardIterator.Create;
  Result.Board := Self;
end;

procedure IPCB_Board.BoardIterator_Destroy(Iterator: IPCB_BoardIterator);
begin
  if Iterator.Board <> Self then Complain('an iterator destroyed by another board');
  Dec(OpenIterators);
  Iterator.Free;
end;

function TPcbServer.GetCurrentPCBBoard: IPCB_Board;
begin
  Result := Front;
end;

function TLayerUtils.MechanicalLayer(I: Integer): Integer;
begin
  Result := 16908288 + I;
end;

{ documents and projects }

procedure IServerDocument.SetModified(Value: Boolean);
begin
  FModified := Value;
  Inc(ModifiedWrites);
end;

function IServerDocument.DoFileSave(const AKind: string): Boolean;
begin
  Call('save ' + Path);
  Inc(Saves);
  Result := not ReadOnly;
  if Result then FModified := False;
end;

function IDocument.DM_FullPath: string;
begin
  Result := Path;
end;

constructor IProject.Create(const ProjectPath: string);
var
  Lines: Classes.TStringList;
  Member: IDocument;
  I: Integer;
begin
  Path := ProjectPath;
  Members := TObjectList.Create(True);
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
  Result := Path;
end;

function IProject.DM_LogicalDocumentCount: Integer;
begin
  Result := Members.Count;
end;

function IProject.DM_LogicalDocuments(I: Integer): IDocument;
begin
  Result := IDocument(Members[I]);
end;

function IProject.DM_NeedsCompile: Boolean;
begin
  Result := not Compiled;
end;

procedure IProject.DM_Compile;
begin
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
  Result := Workspace;
end;

function IWorkspace.DM_ProjectCount: Integer;
begin
  Result := Projects.Count;
end;

function IWorkspace.DM_Projects(I: Integer): IProject;
begin
  Result := IProject(Projects[I]);
end;

function IWorkspace.DM_FocusedProject: IProject;
var
  I: Integer;
begin
  Result := nil;
  if FrontDocument <> nil then
    for I := 0 to Projects.Count - 1 do
      if IProject(Projects[I]).Has(FrontDocument.Path) then Result := IProject(Projects[I]);
end;

function IWorkspace.DM_OpenProject(const Path: string; Show: Boolean): IProject;
begin
  Call('open project ' + Path);
  Result := nil;
  if OpenDoesNothing or not FileExists(Path) then Exit;
  Result := IProject.Create(Path);
  Projects.Add(Result);
end;

function TClient.GetProductVersion: string;
begin
  Result := IntToStr(Version) + '.1.2.44';
end;

function TClient.MainWindowHandle: Integer;
begin
  Result := 131074;
end;

function TClient.GetDocumentByPath(const Path: string): IServerDocument;
var
  I: Integer;
begin
  Result := nil;
  for I := 0 to Documents.Count - 1 do
    if SameText(IServerDocument(Documents[I]).Path, Path) then Result := IServerDocument(Documents[I]);
end;

function TClient.OpenDocument(const Kind, Path: string): IServerDocument;
begin
  Call('open document ' + Path);
  Result := GetDocumentByPath(Path);
  if (Result <> nil) or not FileExists(Path) then Exit;
  Result := IServerDocument.Create;
  Result.Path := Path;
  Result.Kind := Kind;
  Documents.Add(Result);
end;

procedure TClient.ShowDocument(Document: IServerDocument);
begin
  Call('show ' + Document.Path);
  FrontDocument := Document;
end;

procedure Close(Document: IServerDocument);
begin
  if Document.Modified then
    Complain('the host asked whether to save ' + Document.Path);
  Call('closed ' + Document.Path);
  if FrontDocument = Document then FrontDocument := nil;
  Documents.Remove(Document);
end;

procedure TClient.CloseDocument(Document: IServerDocument);
begin
  Close(Document);
end;

{ the window }

procedure TForm.Show;
begin
  Call('show window');
  Visible := True;
end;

procedure TForm.Hide;
begin
  Call('hide window');
  Visible := False;
end;

procedure TForm.Refresh;
begin
end;

function TForm.Handle: Integer;
begin
  Result := 65538;
end;

procedure TApplication.ProcessMessages;
begin
  if Assigned(OnMessages) then OnMessages;
end;

{ processes of the host }

procedure ResetParameters;
begin
  Parameters.Clear;
end;

procedure AddStringParameter(const Name, Value: string);
begin
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

// The archive of this host is a list of the plot fields that are switched on.
procedure WriteArchive(Job: Classes.TStringList; const Folder: string);
var
  Fields: Classes.TStringList;
  I: Integer;
  Text, Key: string;
begin
  Fields := Classes.TStringList.Create;
  Fields.StrictDelimiter := True;
  Fields.Delimiter := '|';
  Fields.QuoteChar := #1;
  Fields.DelimitedText := JobValue(Job, 'Configuration1_Item1');
  Text := '';
  for I := 0 to Fields.Count - 1 do
  begin
    Key := Fields.Names[I];
    if (Fields.ValueFromIndex[I] = 'True') and (Pos('Plot', Key) = 1) then
      if Pos('Plot_V7_', Key) = 1 then Text := Text + Fields.Values[Key + '_name'] + #10
      else Text := Text + Key + #10;
  end;
  if Fields.Values['Compression_zip'] <> 'True' then Complain('the output job does not ask for a ZIP');
  if Generation = WritesEmptyFile then Text := '';
  WriteBytes(Folder + '\Bridge.zip', Text);
  Fields.Free;
end;

// Like the host, this writes nothing and says nothing when something is missing.
procedure Generate;
var
  Project: IProject;
  Job: Classes.TStringList;
  Container, Base: string;
  I: Integer;
begin
  Call('generate ' + Parameters.Values['OutputMedium']);
  if Assigned(OnGenerate) then OnGenerate;
  Project := Workspace.DM_FocusedProject;
  if (FrontDocument = nil) or (Project = nil) or (FrontDocument.Kind <> 'OUTPUTJOB') then Exit;
  if not Project.Has(FrontDocument.Path) then Exit;
  if (Parameters.Values['Action'] <> 'Run') or (Parameters.Values['ObjectKind'] <> 'OutputBatch') then
    Exit;
  Job := Classes.TStringList.Create;
  Job.Text := ReadBytes(FrontDocument.Path);
  Container := '';
  for I := 1 to 9 do
    if (JobValue(Job, 'OutputMedium' + IntToStr(I)) = Parameters.Values['OutputMedium'])
      and (JobValue(Job, 'OutputMedium' + IntToStr(I) + '_Type') = 'GeneratedFiles') then
      Container := IntToStr(I);
  if (Container <> '') and (JobValue(Job, 'OutputType1') = 'ODB')
    and (JobValue(Job, 'OutputEnabled1_OutputMedium' + Container) = '1')
    and FileExists(ExtractFilePath(Project.Path) + JobValue(Job, 'OutputDocumentPath1'))
    and (Generation <> WritesNothing) then
  begin
    Base := ExtractFilePath(Project.Path) + JobValue(Job, 'OutputBasePath' + Container);
    if JobValue(Job, 'OutputPathOutputer' + Container) = '[Output Type]' then Base := Base + '\ODB';
    WriteArchive(Job, Base);
  end;
  // The host marks what it has worked on.
  Client.OpenDocument('PCB', ExtractFilePath(Project.Path) + 'Bridge.PcbDoc').FModified := True;
  FrontDocument.FModified := True;
  Job.Free;
end;

procedure CloseObject;
var
  Project: IProject;
  Kind: string;
  I: Integer;
begin
  Kind := Parameters.Values['ObjectKind'];
  Project := Workspace.DM_FocusedProject;
  if Project = nil then Call('close ' + Kind + ' of nothing')
  else Call('close ' + Kind + ' of ' + Project.Path);
  if CloseFails then raise Exception.Create('the host failed');
  if (Project = nil) or CloseDoesNothing then Exit;
  if Pos('Documents', Kind) > 0 then
    for I := Documents.Count - 1 downto 0 do
      if Project.Has(IServerDocument(Documents[I]).Path) then Close(IServerDocument(Documents[I]));
  if Kind <> 'FocusedProjectDocuments' then Projects.Remove(Project);
end;

procedure RunProcess(const Name: string);
begin
  if Name = 'WorkspaceManager:GenerateReport' then Generate
  else if Name = 'WorkspaceManager:CloseObject' then CloseObject
  else Complain('unknown process ' + Name);
end;

function RunApplication(const CommandLine: string): Integer;
begin
  Call('run ' + CommandLine);
  Result := StartProgram(CommandLine);
end;

function GetErrorMessage(Code: Integer): string;
begin
  Result := 'error ' + IntToStr(Code);
end;

procedure ShowError(const Text: string);
begin
  Boxes.Add('error: ' + Text);
end;

procedure ShowWarning(const Text: string);
begin
  Boxes.Add('warning: ' + Text);
end;

procedure ShowInfo(const Text: string);
begin
  Boxes.Add('info: ' + Text);
end;

function ConfirmNoYes(const Text: string): Boolean;
begin
  Questions.Add(Text);
  Result := AnswerNoYes = mrYes;
end;

function ConfirmNoYesCancel(const Text: string): Integer;
begin
  Questions.Add(Text);
  Result := AnswerSave;
end;

function MkSet(A: Integer): TObjectSet;
begin
  Result := [Byte(A)];
end;

function GetBuildNumberPart(const Text: string; Part: Integer): Integer;
begin
  Result := StrToIntDef(Copy(Text, 1, Pos('.', Text) - 1), 0);
end;

function GetRunningScriptProjectName: string;
begin
  if Version < 19 then Undeclared('GetRunningScriptProjectName');
  Result := ScriptProject;
end;

function SpecialFolder_AltiumApplicationData: string;
begin
  Result := AppDataFolder;
end;

function SpecialFolder_Temporary: string;
begin
  Result := TempFolder;
end;

// Real time passes only while a started program runs; otherwise nothing can change any more, and a
// time-out of minutes needs no minutes.
procedure Sleep(Milliseconds: Integer);
begin
  Inc(Pauses);
  if ProgramRuns then SysUtils.Sleep(Milliseconds);
end;

function GetTickCount: Integer;
begin
  Inc(Ticks, 97);
  Result := Ticks;
end;

initialization
  Calls := Classes.TStringList.Create;
  Boxes := Classes.TStringList.Create;
  Questions := Classes.TStringList.Create;
  Complaints := Classes.TStringList.Create;
  Parameters := Classes.TStringList.Create;
  Projects := TObjectList.Create(True);
  Documents := TObjectList.Create(True);
  Workspace := IWorkspace.Create;
  PCBServer := TPcbServer.Create;
  Client := TClient.Create;
  Application := TApplication.Create;
  LayerUtils := TLayerUtils.Create;
  Ticks := 1000;
end.
