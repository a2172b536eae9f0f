// Kestrune: exports the board in front as one ODB++ archive.
//
// The installer fills in the two folders below. They stand in comments, and the
// script reads them from this very file: a folder may hold an apostrophe, which
// would end a string constant.
// KESTRUNE-RUNTIME-ROOT=@RUNTIME_ROOT@
// KESTRUNE-TEMP-ROOT=@TEMP_ROOT@
//
// Only RunKestrune has no parameter, so that the host offers nothing else to run.

Const
    KsRuntimeMark    = '// KESTRUNE-RUNTIME-ROOT=';
    KsTempMark       = '// KESTRUNE-TEMP-ROOT=';
    KsPause          = 100;     // milliseconds between two looks at a file
    KsPrepareRounds  = 6000;    // looks: ten minutes for the copies of a large panel
    KsWaitRounds     = 1800;    // looks: the program itself gives up after two minutes
    KsEndingRounds   = 100;     // looks: how long a cancelled preparation may take to end
    KsSteps          = 5;
    KsLastMechanical = 112;     // highest mechanical layer that Bridge.OutJob knows
    KsMidLayers      = 30;
    KsPlanes         = 16;
    KsJournalLength  = 20;      // exports whose exchange files are looked after
    KsMedium         = 'Generated Files';   // the container of Bridge.OutJob
    KsGapMark        = 'Clearance Constraint (Gap=';
    KsBreak          = #13#10;

Var
    KsExportRuns  : Boolean;
    KsRuntimeRoot : String;
    KsTempRoot    : String;
    KsExchange    : String;     // folder of the files exchanged with Kestrune.exe
    KsStamp       : String;     // makes the exchange files of this export unique
    KsProblem     : String;     // why the export ends, in the user's words; empty while all is well
    KsNotice      : String;     // what the user should know although the export goes on
    KsLocked      : Boolean;
    KsLock        : TextFile;
    KsStart       : TDateTime;
    KsStepText    : String;
    KsHost        : Integer;    // major version of the host
    KsLogLines    : Integer;    // lines of the log before our program was started
    KsBoard       : IPCB_Board; // the board that is being looked at
    KsBoardPath   : String;     // the board that the user exports
    KsVisited     : TStringList;
    KsSources     : TStringList;
    KsMissing     : TStringList;
    KsPlotKeys    : TStringList;
    KsLayerNames  : TStringList;
    KsTooHigh     : TStringList;
    KsHoles       : Boolean;
    KsPads        : Boolean;
    KsTopPads     : Boolean;
    KsBottomPads  : Boolean;

{--- Texts and paths -----------------------------------------------------------}

Function KsQuoted(S : String) : String;
Begin
    Result := '"' + S + '"';
End;

Function KsSamePath(A : String; B : String) : Boolean;
Begin
    Result := UpperCase(A) = UpperCase(B);
End;

Function KsIsInside(Path : String; Root : String) : Boolean;
Begin
    Result := KsSamePath(Copy(Path, 1, Length(Root) + 1), Root + '\');
End;

Function KsIsAbsolute(Path : String) : Boolean;
Begin
    Result := (Pos(':\', Path) = 2) Or (Pos('\\', Path) = 1);
End;

Function KsAscii(S : String) : Boolean;
Var
    I : Integer;
Begin
    Result := True;
    For I := 1 To Length(S) Do
        If Copy(S, I, 1) > '~' Then Result := False;
End;

// The digits that follow a mark, as a number; -1 when there are none.
Function KsNumberAfter(Mark : String; S : String) : Integer;
Var
    I      : Integer;
    Digits : String;
Begin
    Result := -1;
    I := Pos(Mark, S);
    If I > 0 Then
    Begin
        Digits := Copy(S, I + Length(Mark), 9);
        I := 1;
        While (I <= Length(Digits)) And (Pos(Copy(Digits, I, 1), '0123456789') > 0) Do
            I := I + 1;
        Result := StrToIntDef(Copy(Digits, 1, I - 1), -1);
    End;
End;

Function KsExchangeFile(Name : String) : String;
Begin
    Result := KsExchange + '\' + KsStamp + '-' + Name + '.txt';
End;

Function KsBridgeFile(Name : String) : String;
Begin
    Result := KsTempRoot + '\' + Name;
End;

Function KsOutputFolder(Dummy : Integer) : String;
Begin
    Result := KsTempRoot + '\Project Outputs for Bridge';
End;

Function KsLogPath(Dummy : Integer) : String;
Begin
    Result := ExtractFilePath(KsRuntimeRoot) + 'Logs\bridge.log';
End;

Function KsReinstall(Dummy : Integer) : String;
Begin
    Result := 'Close Altium Designer, run Kestrune.exe --install again and try once more.';
End;

{--- Where the installation lies -----------------------------------------------}

Function KsReadRoots(FileName : String) : Boolean;
Var
    Lines : TStringList;
    Line  : String;
    I     : Integer;
Begin
    KsRuntimeRoot := '';
    KsTempRoot := '';
    If FileExists(FileName) Then
    Begin
        Lines := TStringList.Create;
        Try
            Lines.LoadFromFile(FileName);
            For I := 0 To Lines.Count - 1 Do
            Begin
                Line := Lines.Strings[I];
                If Pos(KsRuntimeMark, Line) = 1 Then
                    KsRuntimeRoot := Copy(Line, Length(KsRuntimeMark) + 1, Length(Line));
                If Pos(KsTempMark, Line) = 1 Then
                    KsTempRoot := Copy(Line, Length(KsTempMark) + 1, Length(Line));
            End;
        Finally
            Lines.Free;
        End;
    End;
    Result := KsIsAbsolute(KsRuntimeRoot) And KsIsAbsolute(KsTempRoot);
End;

// The user's local application data, seen from a folder that the host tells.
Function KsRuntimeBeside(Folder : String) : String;
Var
    I : Integer;
Begin
    Result := '';
    I := Pos('\APPDATA\', UpperCase(Folder));
    If I > 0 Then
        Result := Copy(Folder, 1, I) + 'AppData\Local\Kestrune\Runtime\Kestrune.pas';
End;

Function KsLocateInstallation(Dummy : Integer) : Boolean;
Var
    Workspace : IWorkspace;
    Project   : IProject;
    Path      : String;
    I         : Integer;
Begin
    Result := False;
    Workspace := GetWorkspace;
    If Workspace <> Nil Then
        For I := 0 To Workspace.DM_ProjectCount - 1 Do
        Begin
            Project := Workspace.DM_Projects(I);
            Path := '';
            If Project <> Nil Then Path := Project.DM_ProjectFullPath;
            If (Not Result) And (UpperCase(ExtractFileName(Path)) = 'KESTRUNE.PRJSCR') Then
                Result := KsReadRoots(ExtractFilePath(Path) + 'Kestrune.pas');
        End;
    // A global script project may be missing in the list of open projects.
    If (Not Result) And (KsHost >= 19) Then
        Result := KsReadRoots(ExtractFilePath(GetRunningScriptProjectName) + 'Kestrune.pas');
    If Not Result Then
        Result := KsReadRoots(KsRuntimeBeside(SpecialFolder_AltiumApplicationData));
    If Not Result Then
        Result := KsReadRoots(KsRuntimeBeside(SpecialFolder_Temporary));
End;

Function KsMissingFile(Dummy : Integer) : String;
Begin
    Result := '';
    If Not FileExists(KsRuntimeRoot + '\Bridge.OutJob') Then Result := KsRuntimeRoot + '\Bridge.OutJob';
    If Not FileExists(KsRuntimeRoot + '\Kestrune.exe') Then Result := KsRuntimeRoot + '\Kestrune.exe';
End;

{--- The wait window -----------------------------------------------------------}

Procedure KsShowTime(Dummy : Integer);
Begin
    KestruneWaitForm.TimeLabel.Caption :=
        'Running for ' + IntToStr(Trunc((Now - KsStart) * 86400)) + ' s.';
End;

Procedure KsShowStep(Step : Integer; S : String);
Begin
    KsStepText := 'Step ' + IntToStr(Step) + ' of ' + IntToStr(KsSteps) + ': ' + S;
    KestruneWaitForm.StepLabel.Caption := KsStepText;
    KestruneWaitForm.StepBar.Position := Step;
    KsShowTime(0);
    KestruneWaitForm.Refresh;
    Application.ProcessMessages;
End;

// The button disables itself when it is pressed; closing the window counts too.
Function KsCancelled(Dummy : Integer) : Boolean;
Begin
    Result := (Not KestruneWaitForm.CancelButton.Enabled) Or (Not KestruneWaitForm.Visible);
End;

Procedure KsOpenWindow(Dummy : Integer);
Begin
    KestruneWaitForm.BoardLabel.Caption := ExtractFileName(KsBoardPath);
    KestruneWaitForm.NoteLabel.Caption := ' ';
    KestruneWaitForm.StepBar.Max := KsSteps;
    KestruneWaitForm.CancelButton.Enabled := True;
    KestruneWaitForm.FormStyle := fsStayOnTop;
    KestruneWaitForm.Show;
End;

{--- Files exchanged with Kestrune.exe -----------------------------------------}

Procedure KsDeleteIfThere(FileName : String);
Begin
    If FileExists(FileName) Then DeleteFile(FileName);
End;

Procedure KsDeleteExchange(Dummy : Integer);
Begin
    KsDeleteIfThere(KsExchangeFile('dependencies'));
    KsDeleteIfThere(KsExchangeFile('layers'));
    KsDeleteIfThere(KsExchangeFile('status'));
    KsDeleteIfThere(KsExchangeFile('status') + '.tmp');
    KsDeleteIfThere(KsExchangeFile('result'));
End;

// A cancelled export may leave the program waiting, which then writes a result
// that nobody expects. So each export has its own file names, and a journal of
// the last ones lets a later export remove what came too late.
Procedure KsNewExchange(Dummy : Integer);
Var
    Journal : TStringList;
    Path    : String;
    I       : Integer;
Begin
    KsExchange := ExtractFilePath(KsRuntimeRoot) + 'Exchange';
    ForceDirectories(KsExchange);
    Path := KsExchange + '\journal.txt';
    Journal := TStringList.Create;
    Try
        If FileExists(Path) Then Journal.LoadFromFile(Path);
        For I := 0 To Journal.Count - 1 Do
        Begin
            KsStamp := Journal.Strings[I];
            KsDeleteExchange(0);
        End;
        While Journal.Count >= KsJournalLength Do Journal.Delete(0);
        KsStamp := IntToStr(GetTickCount);
        KsDeleteExchange(0);
        Journal.Add(KsStamp);
        Journal.SaveToFile(Path);
    Finally
        Journal.Free;
    End;
End;

// What a host's code page cannot hold comes back changed from the file.
Function KsWriteList(FileName : String; List : TStringList) : String;
Var
    Written : TStringList;
    I       : Integer;
Begin
    Result := '';
    Written := TStringList.Create;
    Try
        List.SaveToFile(FileName);
        Written.LoadFromFile(FileName);
        For I := 0 To List.Count - 1 Do
        Begin
            If I >= Written.Count Then Result := List.Strings[I]
            Else If Written.Strings[I] <> List.Strings[I] Then Result := List.Strings[I];
        End;
    Finally
        Written.Free;
    End;
End;

// The first line of a small file; empty while it is not there or still written.
Function KsAnswer(FileName : String) : String;
Var
    Lines : TStringList;
Begin
    Result := '';
    If FileExists(FileName) Then
    Begin
        Lines := TStringList.Create;
        Try
            Try
                Lines.LoadFromFile(FileName);
                If Lines.Count > 0 Then Result := Trim(Lines.Strings[0]);
            Except
                Result := '';
            End;
        Finally
            Lines.Free;
        End;
    End;
End;

// Looks for an answer; one that was cancelled gets a few looks more to end properly.
Function KsAwait(FileName : String; Rounds : Integer; EndingRounds : Integer) : String;
Var
    Turn   : Integer;
    Ending : Integer;
Begin
    Turn := 0;
    Ending := 0;
    Result := '';
    Repeat
        Result := KsAnswer(FileName);
        If Result = '' Then
        Begin
            If KsCancelled(0) Then Ending := Ending + 1;
            Turn := Turn + 1;
            Sleep(KsPause);
            KsShowTime(0);
            Application.ProcessMessages;
        End;
    Until (Result <> '') Or (Turn > Rounds) Or (Ending > EndingRounds);
End;

// Starts Kestrune.exe; the host neither waits nor tells the exit code.
Function KsRun(Arguments : String) : Boolean;
Var
    Code : Integer;
Begin
    Code := RunApplication(KsQuoted(KsRuntimeRoot + '\Kestrune.exe') + ' ' + Arguments);
    Result := Code = 0;
    If Not Result Then
        KsProblem := 'Kestrune.exe could not be started: ' + GetErrorMessage(Code) + KsBreak +
            'A virus scanner may have locked it. ' + KsReinstall(0);
End;

{--- The log -------------------------------------------------------------------}

Function KsCountLog(Dummy : Integer) : Integer;
Var
    Lines : TStringList;
Begin
    Result := 0;
    If FileExists(KsLogPath(0)) Then
    Begin
        Lines := TStringList.Create;
        Try
            Try
                Lines.LoadFromFile(KsLogPath(0));
                Result := Lines.Count;
            Except
                Result := 0;
            End;
        Finally
            Lines.Free;
        End;
    End;
End;

// The last line with one of the stages that end a preparation, written since the
// program was started. A log that became shorter was started over.
Function KsFailureLine(Dummy : Integer) : String;
Var
    Lines : TStringList;
    I     : Integer;
    First : Integer;
Begin
    Result := '';
    If FileExists(KsLogPath(0)) Then
    Begin
        Lines := TStringList.Create;
        Try
            Try
                Lines.LoadFromFile(KsLogPath(0));
                First := KsLogLines;
                If Lines.Count < First Then First := 0;
                For I := First To Lines.Count - 1 Do
                    If (Pos('] Stage: Prepare rejected', Lines.Strings[I]) > 0)
                        Or (Pos('] Stage: Prepare failed', Lines.Strings[I]) > 0)
                        Or (Pos('] Stage: Prepare layer selection failed', Lines.Strings[I]) > 0)
                        Or (Pos('] Stage: Prepare missing dependency', Lines.Strings[I]) > 0)
                        Or (Pos('] Stage: Prepare dependency name collision', Lines.Strings[I]) > 0) Then
                        Result := Lines.Strings[I];
            Except
                Result := '';
            End;
        Finally
            Lines.Free;
        End;
    End;
End;

// The log is UTF-8 and is read in the code page, so a path that is not ASCII
// would be shown garbled; then it is left out.
Function KsDetail(Line : String) : String;
Var
    I : Integer;
Begin
    Result := '';
    I := Pos(' | ', Line);
    If I > 0 Then
    Begin
        Result := Copy(Line, I + 3, Length(Line));
        If KsAscii(Result) Then Result := KsBreak + Result
        Else Result := '';
    End;
End;

Function KsFailureOfCode(Code : Integer) : String;
Begin
    If (Code = 112) Or (Code = 39) Then
        Result := 'The disk with the folder ' + KsTempRoot + ' is full. Free some space and try again.'
    Else If (Code = 32) Or (Code = 33) Or (Code = 145) Then
        Result := 'A file in ' + KsTempRoot + ' is in use. Close every document named Bridge and every'
            + ' program that shows this folder, then try again.'
    Else If Code = 5 Then
        Result := 'Windows refused the access to the folder ' + KsTempRoot + ' or to the board file.'
    Else If (Code = 2) Or (Code = 3) Then
        Result := 'A file of the board or of the installation is gone. ' + KsReinstall(0)
    Else
        Result := 'The temporary copy of the board could not be made (Windows error '
            + IntToStr(Code) + ').';
End;

Function KsWhyPrepareFailed(Line : String) : String;
Begin
    If Pos('Stage: Prepare rejected', Line) > 0 Then
    Begin
        If Pos('temporary folder', Line) > 0 Then
            Result := 'This is the temporary copy that Kestrune made of a board. Open the original'
                + ' board and export that one.'
        Else If Pos('is missing', Line) > 0 Then
            Result := 'The board file or one of its embedded boards is no longer where it was.'
        Else
            Result := 'The board files could not be checked. Is the drive or network folder connected?';
    End
    Else If Pos('Stage: Prepare missing dependency', Line) > 0 Then
        Result := 'An embedded board disappeared while it was copied.' + KsDetail(Line)
    Else If Pos('Stage: Prepare dependency name collision', Line) > 0 Then
        Result := 'Two embedded boards have the same file name, or one is named like a file of the'
            + ' temporary project. Rename one of them.' + KsDetail(Line)
    Else If Pos('Stage: Prepare layer selection failed', Line) > 0 Then
        Result := 'The layers could not be selected in the output job: the file Bridge.OutJob of the'
            + ' installation is damaged or the disk is full. ' + KsReinstall(0)
    Else If Pos('Stage: Prepare failed', Line) > 0 Then
        Result := KsFailureOfCode(KsNumberAfter('GetLastError=', Line))
    Else
        Result := 'Kestrune.exe could not find your Windows profile folders.';
End;

{--- Layers and holes ----------------------------------------------------------}

Procedure KsNote(List : TStringList; S : String);
Begin
    If List.IndexOf(S) < 0 Then List.Add(S);
End;

Procedure KsNoteAllCopper(Dummy : Integer);
Var
    I : Integer;
Begin
    KsNote(KsPlotKeys, 'PlotTopLayerPlot');
    KsNote(KsPlotKeys, 'PlotBottomLayerPlot');
    For I := 1 To KsMidLayers Do KsNote(KsPlotKeys, 'PlotMidLayer' + IntToStr(I) + 'Plot');
    For I := 1 To KsPlanes Do KsNote(KsPlotKeys, 'PlotInternalPlane' + IntToStr(I) + 'Plot');
End;

// Every copper layer of the stack belongs to the board, also one without an
// object: an empty plane is a full sheet of copper. The host numbers layers in two
// ways. A number that fits neither lists all: a layer too many is harmless.
Procedure KsNoteCopper(Id : Integer);
Begin
    If (Id = 1) Or (Id = 16777217) Then
        KsNote(KsPlotKeys, 'PlotTopLayerPlot')
    Else If (Id = 32) Or (Id = 16842751) Then
        KsNote(KsPlotKeys, 'PlotBottomLayerPlot')
    Else If (Id > 1) And (Id < 32) Then
        KsNote(KsPlotKeys, 'PlotMidLayer' + IntToStr(Id - 1) + 'Plot')
    Else If (Id > 16777217) And (Id <= 16777217 + KsMidLayers) Then
        KsNote(KsPlotKeys, 'PlotMidLayer' + IntToStr(Id - 16777217) + 'Plot')
    Else If (Id > 38) And (Id <= 38 + KsPlanes) Then
        KsNote(KsPlotKeys, 'PlotInternalPlane' + IntToStr(Id - 38) + 'Plot')
    Else If (Id > 16842752) And (Id <= 16842752 + KsPlanes) Then
        KsNote(KsPlotKeys, 'PlotInternalPlane' + IntToStr(Id - 16842752) + 'Plot')
    Else
        KsNoteAllCopper(0);
End;

// Named by number, never by the name that the user gave: the output job holds
// the host's fixed names.
Procedure KsNoteMechanical(Number : Integer);
Begin
    If Number <= 16 Then
        KsNote(KsPlotKeys, 'PlotMechanical' + IntToStr(Number) + 'Plot')
    Else
        KsNote(KsLayerNames, 'Mechanical Layer ' + IntToStr(Number));
    If Number > KsLastMechanical Then
        KsNote(KsTooHigh, IntToStr(Number));
End;

Procedure KsNoteIfUsed(Layer : Integer; PlotKey : String);
Begin
    If KsBoard.LayerIsUsed[Layer] Then KsNote(KsPlotKeys, PlotKey);
End;

Procedure KsCollectStack(Dummy : Integer);
Var
    Stack : IPCB_MasterLayerStack;
    Layer : IPCB_LayerObject;
Begin
    If KsHost >= 17 Then
    Begin
        Stack := KsBoard.MasterLayerStack;
        Layer := Stack.First(eLayerClass_Electrical);
        While Layer <> Nil Do
        Begin
            KsNoteCopper(Layer.V7_LayerID.ID);
            Layer := Stack.Next(eLayerClass_Electrical, Layer);
        End;
    End
    Else
        KsNoteAllCopper(0);
End;

Procedure KsCollectMechanical(Dummy : Integer);
Var
    Stack : IPCB_MasterLayerStack;
    Layer : IPCB_MechanicalLayer;
    I     : Integer;
Begin
    If KsHost >= 17 Then
    Begin
        Stack := KsBoard.MasterLayerStack;
        If KsHost >= 19 Then
        Begin
            For I := 1 To 1024 Do
            Begin
                Layer := Stack.GetMechanicalLayer(I);
                If Layer <> Nil Then
                    If Layer.UsedByPrims Then KsNoteMechanical(I);
            End;
        End
        Else
        Begin
            For I := 1 To 32 Do
            Begin
                Layer := Stack.LayerObject_V7(LayerUtils.MechanicalLayer(I));
                If Layer <> Nil Then
                    If Layer.UsedByPrims Then KsNoteMechanical(I);
            End;
        End;
    End
    Else
    Begin
        For I := 1 To 16 Do
            If KsBoard.LayerIsUsed[eMechanical1 + I - 1] Then KsNoteMechanical(I);
        For I := 17 To 32 Do KsNoteMechanical(I);
    End;
End;

Procedure KsCollectFixed(Dummy : Integer);
Begin
    KsNoteIfUsed(eTopOverlay,    'PlotTopOverlayPlot');
    KsNoteIfUsed(eBottomOverlay, 'PlotBottomOverlayPlot');
    KsNoteIfUsed(eTopPaste,      'PlotTopPastePlot');
    KsNoteIfUsed(eBottomPaste,   'PlotBottomPastePlot');
    KsNoteIfUsed(eTopSolder,     'PlotTopSolderPlot');
    KsNoteIfUsed(eBottomSolder,  'PlotBottomSolderPlot');
    KsNoteIfUsed(eKeepOutLayer,  'PlotKeepOutLayerPlot');
    KsNoteIfUsed(eDrillDrawing,  'PlotDrillDrawingPair0_Plot');
    KsNoteIfUsed(eDrillGuide,    'PlotDrillGuidePair0_Plot');
End;

Procedure KsCollectVias(Dummy : Integer);
Var
    Iterator : IPCB_BoardIterator;
    Via      : IPCB_Via;
Begin
    Iterator := KsBoard.BoardIterator_Create;
    Try
        Iterator.AddFilter_ObjectSet(MkSet(eViaObject));
        Iterator.AddFilter_LayerSet(AllLayers);
        Iterator.AddFilter_Method(eProcessAll);
        Via := Iterator.FirstPCBObject;
        If Via <> Nil Then
        Begin
            KsHoles := True;
            KsPads := True;
        End;
    Finally
        KsBoard.BoardIterator_Destroy(Iterator);
    End;
End;

Procedure KsCollectPads(Dummy : Integer);
Var
    Iterator : IPCB_BoardIterator;
    Pad      : IPCB_Pad;
Begin
    Iterator := KsBoard.BoardIterator_Create;
    Try
        Iterator.AddFilter_ObjectSet(MkSet(ePadObject));
        Iterator.AddFilter_LayerSet(AllLayers);
        Iterator.AddFilter_Method(eProcessAll);
        Pad := Iterator.FirstPCBObject;
        While Pad <> Nil Do
        Begin
            KsPads := True;
            If Pad.HoleSize > 0 Then KsHoles := True
            Else If Pad.Layer = eTopLayer Then KsTopPads := True
            Else If Pad.Layer = eBottomLayer Then KsBottomPads := True
            Else
            Begin
                KsTopPads := True;
                KsBottomPads := True;
            End;
            If KsHoles And KsTopPads And KsBottomPads Then Pad := Nil
            Else Pad := Iterator.NextPCBObject;
        End;
    Finally
        KsBoard.BoardIterator_Destroy(Iterator);
    End;
End;

// What a board that the host has not loaded holds is not known; then nothing
// may be left out.
Procedure KsNoteEverything(Dummy : Integer);
Var
    I : Integer;
Begin
    KsNoteAllCopper(0);
    For I := 1 To KsLastMechanical Do KsNoteMechanical(I);
    KsNote(KsPlotKeys, 'PlotTopOverlayPlot');
    KsNote(KsPlotKeys, 'PlotBottomOverlayPlot');
    KsNote(KsPlotKeys, 'PlotKeepOutLayerPlot');
    KsHoles := True;
    KsPads := True;
    KsTopPads := True;
    KsBottomPads := True;
End;

Function KsChildPath(Folder : String; Child : IPCB_EmbeddedBoard) : String;
Begin
    Result := Child.DocumentPath;
    If Not KsIsAbsolute(Result) Then Result := Folder + Result;
End;

// Looks at KsBoard and, through them, at its embedded boards. The board is passed
// in a variable: some hosts do not take an embedded board as an argument.
Procedure KsVisitBoard(Path : String);
Var
    Iterator  : IPCB_BoardIterator;
    Child     : IPCB_EmbeddedBoard;
    Parent    : IPCB_Board;
    ChildPath : String;
Begin
    KsVisited.Add(UpperCase(Path));
    KsCollectStack(0);
    KsCollectMechanical(0);
    KsCollectFixed(0);
    KsCollectVias(0);
    KsCollectPads(0);

    Parent := KsBoard;
    Iterator := Parent.BoardIterator_Create;
    Try
        Iterator.AddFilter_ObjectSet(MkSet(eEmbeddedBoardObject));
        Iterator.AddFilter_LayerSet(AllLayers);
        Iterator.AddFilter_Method(eProcessAll);
        Child := Iterator.FirstPCBObject;
        While Child <> Nil Do
        Begin
            ChildPath := KsChildPath(ExtractFilePath(Path), Child);
            KsBoard := Child.ChildBoard;
            If Not FileExists(ChildPath) Then
                If KsBoard <> Nil Then
                    If FileExists(KsBoard.FileName) Then ChildPath := KsBoard.FileName;
            If KsVisited.IndexOf(UpperCase(ChildPath)) < 0 Then
            Begin
                If Not FileExists(ChildPath) Then
                    KsNote(KsMissing, ChildPath)
                Else
                Begin
                    KsSources.Add(ChildPath);
                    If KsBoard <> Nil Then KsVisitBoard(ChildPath)
                    Else
                    Begin
                        KsVisited.Add(UpperCase(ChildPath));
                        KsNoteEverything(0);
                    End;
                End;
            End;
            Child := Iterator.NextPCBObject;
        End;
    Finally
        Parent.BoardIterator_Destroy(Iterator);
    End;
End;

// The drill fields look like layers to the layer selection: a manifest without
// them would switch all holes off.
Procedure KsNoteHolesAndMasks(Dummy : Integer);
Begin
    If KsHoles Then
    Begin
        KsNote(KsPlotKeys, 'PlotPTHPair0_Plot');
        KsNote(KsPlotKeys, 'PlotNPTHPair0_Plot');
    End;
    If KsPads Then
    Begin
        KsNote(KsPlotKeys, 'PlotTopSolderPlot');
        KsNote(KsPlotKeys, 'PlotBottomSolderPlot');
    End;
    If KsTopPads Then KsNote(KsPlotKeys, 'PlotTopPastePlot');
    If KsBottomPads Then KsNote(KsPlotKeys, 'PlotBottomPastePlot');
End;

// Two boards of one name do not fit into the flat temporary folder.
Function KsSameNames(Dummy : Integer) : String;
Var
    I : Integer;
    J : Integer;
Begin
    Result := '';
    For I := 0 To KsSources.Count - 1 Do
        For J := I + 1 To KsSources.Count - 1 Do
            If KsSamePath(ExtractFileName(KsSources.Strings[I]), ExtractFileName(KsSources.Strings[J])) Then
                Result := KsSources.Strings[I] + KsBreak + KsSources.Strings[J];
End;

Function KsCollectBoards(Board : IPCB_Board) : Boolean;
Begin
    KsHoles := False;
    KsPads := False;
    KsTopPads := False;
    KsBottomPads := False;
    KsBoard := Board;
    KsVisitBoard(KsBoardPath);
    KsNoteHolesAndMasks(0);
    If KsMissing.Count > 0 Then
        KsProblem := 'The panel uses boards that cannot be found:' + KsBreak + KsMissing.Text
            + 'Embedded boards must lie where the panel looks for them, usually in its own folder.'
    Else If KsSameNames(0) <> '' Then
        KsProblem := 'Two embedded boards have the same file name. Rename one of them:'
            + KsBreak + KsSameNames(0);
    If KsTooHigh.Count > 0 Then
        KsNotice := 'Mechanical layers above ' + IntToStr(KsLastMechanical)
            + ' are not part of the archive. This board uses:' + KsBreak + KsTooHigh.CommaText;
    Result := KsProblem = '';
End;

{--- Smallest clearance --------------------------------------------------------}

// The gap that a clearance rule describes, in ten-thousandths of a mil; 0 when
// the text is not that of a clearance rule.
Function KsGap(Descriptor : String) : Double;
Var
    I      : Integer;
    Place  : Double;
    Symbol : String;
    Rest   : String;
    Digits : Boolean;
Begin
    Result := 0;
    If Pos(KsGapMark, Descriptor) = 1 Then
    Begin
        Rest := Copy(Descriptor, Length(KsGapMark) + 1, Length(Descriptor));
        Place := 0;
        Digits := True;
        I := 1;
        While Digits Do
        Begin
            Symbol := Copy(Rest, I, 1);
            If (Symbol = '.') Or (Symbol = ',') Then
            Begin
                Digits := Place = 0;
                Place := 1;
            End
            Else If (Symbol <> '') And (Pos(Symbol, '0123456789') > 0) Then
            Begin
                Result := Result * 10 + StrToIntDef(Symbol, 0);
                Place := Place * 10;
            End
            Else
                Digits := False;
            If Digits Then I := I + 1;
        End;
        If Place > 1 Then Result := Result / Place;
        Rest := Copy(Rest, I, Length(Rest));
        If Pos('mil)', Rest) = 1 Then Result := Result * 10000
        Else If Pos('mm)', Rest) = 1 Then Result := Result * 10000 / 0.0254
        Else Result := 0;
    End;
End;

Function KsSmallestClearance(Board : IPCB_Board) : Integer;
Var
    Iterator : IPCB_BoardIterator;
    Rule     : IPCB_Primitive;
    Gap      : Integer;
Begin
    Result := 0;
    Iterator := Board.BoardIterator_Create;
    Try
        Iterator.AddFilter_ObjectSet(MkSet(eRuleObject));
        Iterator.AddFilter_LayerSet(AllLayers);
        Iterator.AddFilter_Method(eProcessAll);
        Rule := Iterator.FirstPCBObject;
        While Rule <> Nil Do
        Begin
            Gap := Round(KsGap(Rule.Descriptor));
            If (Gap > 0) And ((Result = 0) Or (Gap < Result)) Then Result := Gap;
            Rule := Iterator.NextPCBObject;
        End;
    Finally
        Board.BoardIterator_Destroy(Iterator);
    End;
End;

// An archive without this value is better than none.
Function KsClearanceIfKnown(Board : IPCB_Board) : Integer;
Begin
    Try
        Result := KsSmallestClearance(Board);
    Except
        Result := 0;
    End;
End;

{--- The temporary project in the host -----------------------------------------}

Function KsFocusedProject(Dummy : Integer) : String;
Var
    Project : IProject;
Begin
    Result := '';
    Project := GetWorkspace.DM_FocusedProject;
    If Project <> Nil Then Result := Project.DM_ProjectFullPath;
End;

Function KsBridgeIsFocused(Dummy : Integer) : Boolean;
Begin
    Result := KsSamePath(KsFocusedProject(0), KsBridgeFile('Bridge.PrjPcb'));
End;

Function KsBridgeIndex(Dummy : Integer) : Integer;
Var
    Project : IProject;
    I       : Integer;
Begin
    Result := -1;
    For I := 0 To GetWorkspace.DM_ProjectCount - 1 Do
    Begin
        Project := GetWorkspace.DM_Projects(I);
        If Project <> Nil Then
            If KsSamePath(Project.DM_ProjectFullPath, KsBridgeFile('Bridge.PrjPcb')) Then Result := I;
    End;
End;

// Throw-away documents are marked unmodified, so that no question appears.
Procedure KsForgetChanges(Path : String);
Var
    Document : IServerDocument;
Begin
    If KsIsInside(Path, KsTempRoot) Then
    Begin
        Document := Client.GetDocumentByPath(Path);
        If Document <> Nil Then Document.Modified := False;
    End;
End;

Procedure KsForgetBridgeChanges(Dummy : Integer);
Var
    Project : IProject;
    Member  : IDocument;
    I       : Integer;
Begin
    KsForgetChanges(KsBridgeFile('Bridge.PrjPcb'));
    KsForgetChanges(KsBridgeFile('Bridge.OutJob'));
    If KsBridgeIndex(0) >= 0 Then
    Begin
        Project := GetWorkspace.DM_Projects(KsBridgeIndex(0));
        For I := 0 To Project.DM_LogicalDocumentCount - 1 Do
        Begin
            Member := Project.DM_LogicalDocuments(I);
            If Member <> Nil Then KsForgetChanges(Member.DM_FullPath);
        End;
    End;
End;

// Closing acts on the focused project, whatever its parameters say: so one of the
// Bridge documents is shown, and what has the focus is checked each time.
Procedure KsCloseFocused(ObjectKind : String);
Var
    Document : IServerDocument;
Begin
    If KsBridgeIndex(0) >= 0 Then
    Begin
        If Not KsBridgeIsFocused(0) Then
        Begin
            If FileExists(KsBridgeFile('Bridge.OutJob')) Then
            Begin
                Document := Client.OpenDocument('OUTPUTJOB', KsBridgeFile('Bridge.OutJob'));
                If Document <> Nil Then Client.ShowDocument(Document);
            End;
        End;
        If KsBridgeIsFocused(0) Then
        Begin
            ResetParameters;
            AddStringParameter('ObjectKind', ObjectKind);
            RunProcess('WorkspaceManager:CloseObject');
        End;
    End;
End;

Procedure KsCloseStray(Path : String);
Var
    Document : IServerDocument;
Begin
    If KsIsInside(Path, KsTempRoot) Then
    Begin
        Document := Client.GetDocumentByPath(Path);
        If Document <> Nil Then
        Begin
            Document.Modified := False;
            Client.CloseDocument(Document);
        End;
    End;
End;

Function KsCloseBridge(Dummy : Integer) : Boolean;
Var
    I : Integer;
Begin
    KsForgetBridgeChanges(0);
    KsCloseFocused('FocusedProjectAndDocuments');
    KsForgetBridgeChanges(0);
    KsCloseFocused('FocusedProjectDocuments');
    KsCloseFocused('FocusedProject');
    Result := KsBridgeIndex(0) < 0;
    If Result Then
    Begin
        KsCloseStray(KsBridgeFile('Bridge.OutJob'));
        KsCloseStray(KsBridgeFile('Bridge.PcbDoc'));
        For I := 0 To KsSources.Count - 1 Do
            KsCloseStray(KsBridgeFile(ExtractFileName(KsSources.Strings[I])));
    End;
End;

Function KsOpenBridge(Dummy : Integer) : Boolean;
Var
    Project : IProject;
    Job     : IServerDocument;
Begin
    Result := False;
    GetWorkspace.DM_OpenProject(KsBridgeFile('Bridge.PrjPcb'), True);
    Job := Client.OpenDocument('OUTPUTJOB', KsBridgeFile('Bridge.OutJob'));
    If Job <> Nil Then
    Begin
        Client.ShowDocument(Job);
        If KsBridgeIsFocused(0) Then
        Begin
            Project := GetWorkspace.DM_FocusedProject;
            If Project.DM_NeedsCompile Then Project.DM_Compile;
            Client.ShowDocument(Job);
            Result := KsBridgeIsFocused(0);
        End;
    End;
    If Not Result Then
        KsProblem := 'Altium Designer did not open the temporary project '
            + KsBridgeFile('Bridge.PrjPcb') + '.';
End;

{--- One export, step by step --------------------------------------------------}

Function KsPrepare(Board : IPCB_Board) : Boolean;
Var
    Manifest : TStringList;
    Lost     : String;
    Answer   : String;
    I        : Integer;
Begin
    Result := False;
    Lost := '';
    If KsCollectBoards(Board) Then
    Begin
        Manifest := TStringList.Create;
        Try
            For I := 0 To KsPlotKeys.Count - 1 Do Manifest.Add('PlotKey=' + KsPlotKeys.Strings[I]);
            For I := 0 To KsLayerNames.Count - 1 Do Manifest.Add('LayerName=' + KsLayerNames.Strings[I]);
            Try
                Lost := KsWriteList(KsExchangeFile('dependencies'), KsSources);
                If Lost <> '' Then
                    KsProblem := 'This path holds characters that Windows cannot hand to the export.'
                        + ' Rename the file or folder:' + KsBreak + Lost
                Else
                    Lost := KsWriteList(KsExchangeFile('layers'), Manifest);
            Except
                Lost := KsExchange;
                KsProblem := 'No file could be written in ' + KsExchange + '. Is the disk full?';
            End;
        Finally
            Manifest.Free;
        End;
        If (Lost <> '') And (KsProblem = '') Then
            KsProblem := 'The list of layers in ' + KsExchange + ' is incomplete. Is the disk full?';
    End;
    If KsProblem = '' Then
    Begin
        KsLogLines := KsCountLog(0);
        If KsRun('--prepare ' + KsQuoted(KsBoardPath) + ' ' + KsQuoted(KsExchangeFile('dependencies'))
            + ' ' + KsQuoted(KsExchangeFile('layers')) + ' ' + KsQuoted(KsExchangeFile('status'))) Then
        Begin
            Answer := KsAwait(KsExchangeFile('status'), KsPrepareRounds, KsEndingRounds);
            If Answer = 'OK' Then Result := True
            Else If Not KsCancelled(0) Then
            Begin
                If Answer = '' Then
                    KsProblem := 'Kestrune.exe gave no answer in time. A very large panel, a slow network'
                        + ' folder or a virus scanner may be the reason.'
                Else
                    KsProblem := KsWhyPrepareFailed(KsFailureLine(0));
            End;
        End;
    End;
End;

Procedure KsGenerate(Dummy : Integer);
Begin
    KestruneWaitForm.TimeLabel.Caption := KestruneWaitForm.TimeLabel.Caption
        + ' This clock stands still while Altium Designer works.';
    KestruneWaitForm.Refresh;
    Application.ProcessMessages;
    ResetParameters;
    AddStringParameter('Action', 'Run');
    AddStringParameter('ObjectKind', 'OutputBatch');
    AddStringParameter('OutputMedium', KsMedium);
    AddStringParameter('DisableDialog', 'True');
    RunProcess('WorkspaceManager:GenerateReport');
    Application.ProcessMessages;
End;

Function KsAwaitArchive(Dummy : Integer) : Boolean;
Var
    Answer  : String;
    Archive : String;
Begin
    Result := False;
    Archive := KsOutputFolder(0) + '\ODB\Bridge.zip';
    If KsRun('--wait-native ' + KsQuoted(Archive) + ' '
        + KsQuoted(KsOutputFolder(0) + '\Status Report.Txt') + ' '
        + KsQuoted(KsExchangeFile('result'))) Then
    Begin
        Answer := KsAwait(KsExchangeFile('result'), KsWaitRounds, 0);
        Result := (Answer = 'OK') And FileExists(Archive);
        If (Not Result) And (Not KsCancelled(0)) Then
            KsProblem := 'Altium Designer wrote no complete ODB++ archive. Look into its Messages panel'
                + ' for the reason: a missing licence for outputs or an error in the board.';
    End;
End;

Function KsSteps1To4(Board : IPCB_Board) : Boolean;
Begin
    Result := False;
    KsShowStep(1, 'preparing a copy of the board');
    KsRun('--position-window ' + IntToStr(KestruneWaitForm.Handle) + ' ' + IntToStr(Client.MainWindowHandle));
    If KsProblem = '' Then
        If Not KsCloseBridge(0) Then
            KsProblem := 'The temporary project of an earlier export is still open. Close the project Bridge'
                + ' without saving and try again.';
    If (KsProblem = '') And (Not KsCancelled(0)) Then
        If KsPrepare(Board) And (Not KsCancelled(0)) Then
        Begin
            KsShowStep(2, 'opening the temporary project');
            If KsOpenBridge(0) And (Not KsCancelled(0)) Then
            Begin
                KsShowStep(3, 'Altium Designer writes the ODB++ archive');
                If Not KsCancelled(0) Then KsGenerate(0);
                If Not KsCancelled(0) Then
                Begin
                    KsShowStep(4, 'waiting until the archive is complete');
                    Result := KsAwaitArchive(0);
                End;
            End;
        End;
End;

Procedure KsCloseAndReturn(Document : IServerDocument);
Var
    Closed : Boolean;
Begin
    Closed := False;
    Try
        Closed := KsCloseBridge(0);
    Except
        Closed := False;
    End;
    If Not Closed Then
        KsNotice := KsNotice + KsBreak
            + 'The temporary project Bridge could not be closed. Close it without saving.';
    Try
        Client.ShowDocument(Document);
    Except
        KsNotice := KsNotice + KsBreak + 'Your board could not be brought to the front.';
    End;
End;

Procedure KsReleaseLock(Dummy : Integer);
Begin
    If KsLocked Then
    Begin
        KsLocked := False;
        CloseFile(KsLock);
        DeleteFile(KsExchange + '\running.txt');
    End;
End;

Procedure KsExportDocument(Board : IPCB_Board; Document : IServerDocument);
Var
    Delivered : Boolean;
    Space     : Integer;
    Arguments : String;
Begin
    Delivered := False;
    Space := 0;
    KsOpenWindow(0);
    Try
        Try
            Delivered := KsSteps1To4(Board);
        Except
            Delivered := False;
            KsProblem := 'The export stopped in the middle of: ' + KsStepText + '.';
        End;
    Finally
        If Delivered Then
        Begin
            KsShowStep(5, 'delivering the archive');
            Space := KsClearanceIfKnown(Board);
        End;
        // Whatever happened: nothing of the export stays open, and the board is back.
        KsCloseAndReturn(Document);
        If KsCancelled(0) Then Delivered := False;
        KestruneWaitForm.Hide;
        KsDeleteExchange(0);
        KsReleaseLock(0);
    End;
    If KsNotice <> '' Then ShowWarning(Trim(KsNotice));
    If Delivered Then
    Begin
        Arguments := '--finalize-auto ' + KsQuoted(KsBoardPath);
        If Space > 0 Then Arguments := Arguments + ' ' + IntToStr(Space);
        KsRun(Arguments);
    End;
    If KsProblem <> '' Then
        ShowError('The board was not exported.' + KsBreak + KsBreak + KsProblem
            + KsBreak + KsBreak + 'Details: ' + KsLogPath(0));
End;

{--- Before the export ---------------------------------------------------------}

// Two host windows share the temporary folder. An open file cannot be deleted, and
// Windows closes it when its owner ends, so a crash leaves no lock behind.
Function KsTakeLock(Dummy : Integer) : Boolean;
Var
    Path : String;
Begin
    Result := True;
    KsLocked := False;
    Path := KsExchange + '\running.txt';
    KsDeleteIfThere(Path);
    If FileExists(Path) Then
        Result := ConfirmNoYes('Another window of Altium Designer seems to export a board at this moment.'
            + KsBreak + 'Two exports at once spoil each other. Start this one all the same?')
    Else
    Begin
        Try
            AssignFile(KsLock, Path);
            Rewrite(KsLock);
            KsLocked := True;
        Except
            KsLocked := False;
        End;
    End;
End;

// The board is exported from its file. The host does not always know that a board
// was changed, so saving is offered each time.
Function KsSaveBoard(Document : IServerDocument) : Boolean;
Var
    Question : String;
    Answer   : Integer;
Begin
    If Document.Modified Then
        Question := 'The board has changes that are not saved. Save it before the export?'
    Else
        Question := 'Save the board before the export?';
    Question := Question + KsBreak + KsBoardPath + KsBreak + KsBreak
        + 'Yes: save, then export.' + KsBreak
        + 'No: export the file as it was saved last.' + KsBreak
        + 'Cancel: do nothing.';
    Answer := ConfirmNoYesCancel(Question);
    Result := (Answer = mrYes) Or (Answer = mrNo);
    If Answer = mrYes Then
    Begin
        Document.DoFileSave('PCB');
        If Document.Modified Then
            Result := ConfirmNoYes('The board could not be saved; its file may be write-protected.'
                + KsBreak + 'Export the file as it was saved last?');
    End;
End;

Function KsRefusal(Board : IPCB_Board; Document : IServerDocument) : String;
Begin
    Result := '';
    If KsIsInside(KsBoardPath, KsTempRoot) Then
        Result := 'This is the temporary copy that Kestrune made of a board. Open the original board and'
            + ' export that one.'
    Else If UpperCase(ExtractFileExt(KsBoardPath)) = '.PCBLIB' Then
        Result := 'This is a library. Open a board and press the button there.'
    Else If (Not KsIsAbsolute(KsBoardPath)) Or (Not FileExists(KsBoardPath)) Then
        Result := 'This board has no file: it was never saved, or its folder is not connected. Save it'
            + ' under a name first, then press the button again.'
    Else If Document = Nil Then
        Result := 'Altium Designer does not know the document of this board. Open it again and retry.'
    Else If KsMissingFile(0) <> '' Then
        Result := 'The installation of Kestrune is incomplete. This file is missing:' + KsBreak
            + KsMissingFile(0) + KsBreak + KsReinstall(0);
End;

Procedure KsExportBoard(Board : IPCB_Board);
Var
    Document : IServerDocument;
    Refusal  : String;
Begin
    KsBoardPath := Board.FileName;
    Document := Client.GetDocumentByPath(KsBoardPath);
    Refusal := KsRefusal(Board, Document);
    If Refusal <> '' Then ShowWarning(Refusal)
    Else If KsSaveBoard(Document) Then
    Begin
        Try
            KsNewExchange(0);
        Except
            KsProblem := 'No file could be written in ' + KsExchange + '. Is the disk full?';
        End;
        If KsProblem <> '' Then ShowError(KsProblem)
        Else If KsTakeLock(0) Then KsExportDocument(Board, Document);
    End;
End;

Procedure KsExport(Dummy : Integer);
Var
    Board : IPCB_Board;
Begin
    KsProblem := '';
    KsNotice := '';
    KsLocked := False;
    KsStart := Now;
    KsHost := GetBuildNumberPart(Client.GetProductVersion, 0);
    Board := Nil;
    If PCBServer <> Nil Then Board := PCBServer.GetCurrentPCBBoard;
    If Board = Nil Then
        ShowWarning('Open the board that you want to export and press the button again.')
    Else If Not KsLocateInstallation(0) Then
        ShowError('The folders of Kestrune could not be found. ' + KsReinstall(0))
    Else
        KsExportBoard(Board);
End;

Procedure KsRunWithLists(Dummy : Integer);
Begin
    KsVisited := TStringList.Create;
    KsSources := TStringList.Create;
    KsMissing := TStringList.Create;
    KsPlotKeys := TStringList.Create;
    KsLayerNames := TStringList.Create;
    KsTooHigh := TStringList.Create;
    Try
        KsExport(0);
    Finally
        KsVisited.Free;
        KsSources.Free;
        KsMissing.Free;
        KsPlotKeys.Free;
        KsLayerNames.Free;
        KsTooHigh.Free;
    End;
End;

// A script that was stopped in the debugger cannot take its mark back; then the
// wait window is closed by hand, and the user is asked.
Function KsMayStart(Dummy : Integer) : Boolean;
Begin
    Result := True;
    If KsExportRuns Then
    Begin
        If KestruneWaitForm.Visible Then
        Begin
            KestruneWaitForm.NoteLabel.Caption := 'An export is already running: this one.';
            Result := False;
        End
        Else
            Result := ConfirmNoYes('The last export has not ended yet, or it was stopped by force.'
                + KsBreak + 'Start a new one?');
    End;
End;

Procedure RunKestrune;
Begin
    If KsMayStart(0) Then
    Begin
        KsExportRuns := True;
        Try
            KsRunWithLists(0);
        Finally
            KsExportRuns := False;
        End;
    End;
End;
