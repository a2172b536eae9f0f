// Kestrune: exports the active board as one ODB++ archive.
//
// The installer fills in the two folders below. They are in comments, which the script
// reads from its own file, since an apostrophe in a path would end a string constant.
// KESTRUNE-RUNTIME-ROOT=@RUNTIME_ROOT@
// KESTRUNE-TEMP-ROOT=@TEMP_ROOT@
//
// Only RunKestrune has no parameter, so that the host offers nothing else to run.
//
// Some errors stop the interpreter without running any Except or Finally. Each run
// therefore has a mark, a small file that records its current action. The mark is also
// the lock against a second export: see "The mark of a run".

Const
    KsRuntimeMark    = '// KESTRUNE-RUNTIME-ROOT=';
    KsTempMark       = '// KESTRUNE-TEMP-ROOT=';
    KsPause          = 100;     // milliseconds between two polls
    KsLooksPerSecond = 10;
    KsPrepareLimit   = 600;     // seconds for the copies of a large panel
    KsAnswerLimit    = 180;     // seconds; the program itself gives up after two minutes
    KsCancelLimit    = 10;      // seconds that a cancelled preparation gets to end
    KsFocusLimit     = 5;       // seconds until the output job must have the focus
    KsSilenceLimit   = 15;      // seconds until the host must have written something
    KsArchiveWaits   = 15;      // waits of two minutes for an archive that still grows
    KsDeliveryLimit  = 600;     // seconds until a delivery counts as ended
    KsCallLimit      = 10;      // seconds for a call that returns at once
    KsObjectsLimit   = 60;      // seconds for reading all objects of a large board
    KsFirstMarks     = 30;      // at most so many marks before the installation is found
    KsWaitLimit      = 600;     // seconds for a call that may take long or shows a window
    KsGenerateLimit  = 7200;    // seconds while the host writes the archive
    KsMarkLooks      = 50;      // polls until the mark is written anew
    KsLiveLimit      = 12;      // seconds; the mark of a run that waits is younger
    KsCheckLimit     = 30;      // seconds for reading the archive's table of layers
    KsReadTries      = 5;       // attempts to read a file that is about to be replaced
    KsSteps          = 6;
    KsLastMechanical = 112;     // highest mechanical layer that Bridge.OutJob knows
    KsMidLayers      = 30;
    KsPlanes         = 16;
    KsTopCopper      = 16777217;    // layer numbers of hosts from version 14 on
    KsBottomCopper   = 16842751;
    KsFirstPlane     = 16842753;
    KsBoardNameWidth = 32;      // characters of a file name that fit into the window
    KsMedium         = 'Kestrune ODB++';    // the container of Bridge.OutJob
    KsFirstStamp     = 'Kestrune-press';    // names of marks in the folder for temporary files begin with it
    KsDrawings       = 'drawings';
    KsOtherTypes     = 'SIGNAL POWER_GROUND MIXED SOLDER_MASK SOLDER_PASTE SILK_SCREEN DRILL COMPONENT DIELECTRIC';
    KsMirrored       = 'a mirrored board';
    KsGapMark        = 'Clearance Constraint (Gap=';
    KsBreak          = #13#10;

    // Stages and fragments that the script searches for in the log;
    // export/log_interface.h has the same ones.
    KsStageRejected    = 'Prepare rejected';
    KsStageFailed      = 'Prepare failed';
    KsStageLayers      = 'Prepare layer selection failed';
    KsStageMissing     = 'Prepare missing dependency';
    KsStageCollision   = 'Prepare dependency name collision';
    KsStageDelivered   = 'Finalize copied';
    KsStageUndelivered = 'Finalize failed';
    KsStageUnhandled   = 'Unhandled failure';
    KsFragmentCode     = 'GetLastError=';
    KsFragmentInside   = 'temporary folder';
    KsFragmentGone     = 'is missing';

Var
    // The state of the run: its paths, its current action, its outcome.
    KsExportRuns  : Boolean;
    KsRuntimeRoot : String;
    KsTempRoot    : String;
    KsExchange    : String;     // folder of the files exchanged with Kestrune.exe
    KsStamp       : String;     // makes the exchange files of this run unique
    KsMarkPath    : String;     // path of the current mark; empty while there is none
    KsMarkNumber  : Integer;
    KsMarkState   : String;
    KsMarkUntil   : String;     // the file that ends the recorded action; may be empty
    KsMarkIsCall  : Boolean;    // the mark is that of a call, not of a wait
    KsMarkLost    : Boolean;    // the mark was removed: another run took over
    KsMarkIsKept  : Boolean;    // the mark stays after the run, since an action goes on
    KsKeptState   : String;     // the state that such a mark records
    KsMarkAge     : Integer;    // polls since the mark was written
    KsNamed       : TStringList;    // calls of the host that this run made at least once
    KsProblem     : String;     // why the export ends, for the user; empty without a problem
    KsNotice      : String;     // a warning that does not end the export
    KsStart       : TDateTime;
    KsStepText    : String;
    KsVersion     : String;     // version of the host
    KsHost        : Integer;    // its major version
    KsLogLines    : Integer;    // lines of the log before Kestrune.exe was started
    KsBoardPath   : String;     // the board that the user exports
    KsReady       : String;     // ready.txt of the temporary folder, as the preparation left it
    KsReadyAge    : Integer;

    // The results of step 1 about the board, valid until the end of the run.
    KsBoard       : IPCB_Board;     // the board that is being read
    KsChildren    : TObjectList;    // embedded boards, in the order in which they are read
    KsChildFolder : TStringList;    // for each of them the folder of the board that holds it
    KsVisited     : TStringList;
    KsSources     : TStringList;    // files of the embedded boards
    KsMissing     : TStringList;
    KsUnsaved     : TStringList;    // embedded boards that were changed and not saved
    KsAway        : TStringList;    // stored paths that do not resolve from the temporary folder
    KsPlotKeys    : TStringList;
    KsLayerNames  : TStringList;
    KsTooHigh     : TStringList;
    KsFindings    : TStringList;    // copper, drills, layers with objects: what an archive must have
    KsHoles       : Integer;        // of the board and each embedded board
    KsRows        : TStringList;    // the rows of the archive's table of layers
    KsGaps        : TStringList;    // what the archive lacks, for the user
    KsRefused     : Boolean;        // the user rejected such an archive
    KsPads        : Boolean;
    KsTopPads     : Boolean;
    KsBottomPads  : Boolean;
    KsClearance   : Integer;        // ten-thousandths of a mil; 0 while there is none
    KsClearanceOk : Boolean;        // every enabled rule was read

{--- Texts and paths -----------------------------------------------------------}

Function KsQuoted(S : String) : String;
Var
    Text : String;
Begin
    Text := '"' + S + '"';
    Result := Text;
End;

Function KsSamePath(A : String; B : String) : Boolean;
Var
    Same : Boolean;
Begin
    Same := UpperCase(A) = UpperCase(B);
    Result := Same;
End;

Function KsIsInside(Path : String; Root : String) : Boolean;
Var
    Inside : Boolean;
Begin
    Inside := KsSamePath(Copy(Path, 1, Length(Root) + 1), Root + '\');
    Result := Inside;
End;

Function KsIsAbsolute(Path : String) : Boolean;
Var
    Known : Boolean;
Begin
    Known := (Pos(':\', Path) = 2) Or (Pos('\\', Path) = 1);
    Result := Known;
End;

// Returns a text without the characters that a code page may change.
Function KsAsciiPart(S : String) : String;
Var
    I    : Integer;
    Text : String;
Begin
    Text := '';
    For I := 1 To Length(S) Do
        If (Ord(S[I]) < 127) And (Copy(S, I, 1) <> '?') Then Text := Text + Copy(S, I, 1);
    Result := Text;
End;

// Returns the number that follows a prefix in a text; -1 when there is none.
Function KsNumberAfter(Mark : String; S : String) : Integer;
Var
    I      : Integer;
    Number : Integer;
    Digits : String;
Begin
    Number := -1;
    I := Pos(Mark, S);
    If I > 0 Then
    Begin
        Digits := Copy(S, I + Length(Mark), 9);
        I := 1;
        While (I <= Length(Digits)) And (Pos(Copy(Digits, I, 1), '0123456789') > 0) Do
            I := I + 1;
        Number := StrToIntDef(Copy(Digits, 1, I - 1), -1);
    End;
    Result := Number;
End;

// Returns a file name, shortened in its middle to the width of the window.
Function KsShortName(Path : String) : String;
Var
    Name : String;
Begin
    Name := ExtractFileName(Path);
    If Length(Name) > KsBoardNameWidth Then
        Name := Copy(Name, 1, KsBoardNameWidth - 18) + '...' + Copy(Name, Length(Name) - 14, 15);
    Result := Name;
End;

Function KsExchangeFile(Name : String) : String;
Var
    Path : String;
Begin
    Path := KsExchange + '\' + KsStamp + '-' + Name + '.txt';
    Result := Path;
End;

Function KsBridgeFile(Name : String) : String;
Var
    Path : String;
Begin
    Path := KsTempRoot + '\' + Name;
    Result := Path;
End;

Function KsOutputFolder(Dummy : Integer) : String;
Var
    Path : String;
Begin
    Path := KsTempRoot + '\Project Outputs for Bridge';
    Result := Path;
End;

Function KsArchive(Dummy : Integer) : String;
Var
    Path : String;
Begin
    Path := KsOutputFolder(0) + '\ODB\Bridge.zip';
    Result := Path;
End;

// Returns the folder of the log, the settings and the exchange files.
Function KsHome(Dummy : Integer) : String;
Var
    Path : String;
Begin
    Path := ExtractFilePath(KsRuntimeRoot);
    Result := Path;
End;

Function KsLogPath(Dummy : Integer) : String;
Var
    Path : String;
Begin
    Path := KsHome(0) + 'Logs\bridge.log';
    Result := Path;
End;

Function KsReinstall(Dummy : Integer) : String;
Var
    Text : String;
Begin
    Text := 'Close Altium Designer, run Kestrune.exe --install again and try once more.';
    Result := Text;
End;

// Adds a sentence to the warning that the user sees at the end.
Procedure KsAddNotice(S : String);
Begin
    If KsNotice <> '' Then KsNotice := KsNotice + KsBreak + KsBreak;
    KsNotice := KsNotice + S;
End;

{--- Small files ---------------------------------------------------------------}

Procedure KsDeleteIfThere(FileName : String);
Begin
    If FileExists(FileName) Then DeleteFile(FileName);
End;

// Writes a file after deleting an existing one: writing over an existing file can stop
// the interpreter.
Function KsWriteFresh(FileName : String; List : TStringList) : Boolean;
Var
    Done : Boolean;
Begin
    Done := False;
    KsDeleteIfThere(FileName);
    If DirectoryExists(ExtractFilePath(FileName)) And (Not FileExists(FileName)) Then
    Begin
        Try
            List.SaveToFile(FileName);
            Done := FileExists(FileName);
        Except
            Done := False;
        End;
    End;
    Result := Done;
End;

// Reads a file into a list; the list is left as it is when that fails.
Function KsRead(FileName : String; List : TStringList) : Boolean;
Var
    Done : Boolean;
Begin
    Done := False;
    If FileExists(FileName) Then
    Begin
        Try
            List.LoadFromFile(FileName);
            Done := True;
        Except
            Done := False;
        End;
    End;
    Result := Done;
End;

// Returns the first line of a small file; empty while the file is absent or still being
// written.
Function KsFirstLine(FileName : String) : String;
Var
    Lines : TStringList;
    Line  : String;
Begin
    Line := '';
    Lines := TStringList.Create;
    Try
        If KsRead(FileName, Lines) Then
            If Lines.Count > 0 Then Line := Trim(Lines.Strings[0]);
    Finally
        Lines.Free;
    End;
    Result := Line;
End;

// Returns the text after a key such as 'Board=' in a list of lines; empty without the
// key.
Function KsValue(Lines : TStringList; Key : String) : String;
Var
    I    : Integer;
    Text : String;
Begin
    Text := '';
    For I := 0 To Lines.Count - 1 Do
        If Pos(Key, Lines.Strings[I]) = 1 Then
            Text := Copy(Lines.Strings[I], Length(Key) + 1, Length(Lines.Strings[I]));
    Result := Text;
End;

{--- Where the installation lies -----------------------------------------------}

Function KsReadRoots(FileName : String) : Boolean;
Var
    Lines : TStringList;
    Both  : Boolean;
Begin
    KsRuntimeRoot := '';
    KsTempRoot := '';
    Lines := TStringList.Create;
    Try
        If KsRead(FileName, Lines) Then
        Begin
            KsRuntimeRoot := KsValue(Lines, KsRuntimeMark);
            KsTempRoot := KsValue(Lines, KsTempMark);
        End;
    Finally
        Lines.Free;
    End;
    Both := KsIsAbsolute(KsRuntimeRoot) And KsIsAbsolute(KsTempRoot);
    Result := Both;
End;

// Returns the script in the user's local application data, found from another folder of
// the user.
Function KsRuntimeBeside(Folder : String) : String;
Var
    I    : Integer;
    Path : String;
Begin
    Path := '';
    I := Pos('\APPDATA\', UpperCase(Folder));
    If I > 0 Then
        Path := Copy(Folder, 1, I) + 'AppData\Local\Kestrune\Runtime\Kestrune.pas';
    Result := Path;
End;

Function KsMissingFile(Dummy : Integer) : String;
Var
    Path : String;
Begin
    Path := '';
    If Not FileExists(KsRuntimeRoot + '\Bridge.OutJob') Then Path := KsRuntimeRoot + '\Bridge.OutJob';
    If Not FileExists(KsRuntimeRoot + '\Kestrune.exe') Then Path := KsRuntimeRoot + '\Kestrune.exe';
    Result := Path;
End;

// Returns the setting SaveBoard, from the user's file or else from the one for all
// users. Any entry at the first path hides the second, even a folder, as in the program.
Function KsSaveSetting(Dummy : Integer) : String;
Var
    Settings : TIniFile;
    Path     : String;
    Setting  : String;
Begin
    Setting := 'ask';
    Path := KsHome(0) + 'settings.ini';
    If (Not FileExists(Path)) And (Not DirectoryExists(Path)) Then
        Path := Copy(KsRuntimeRoot, 1, 2) + '\ProgramData\Kestrune\settings.ini';
    If FileExists(Path) Then
    Begin
        Settings := TIniFile.Create(Path);
        Try
            Setting := LowerCase(Trim(Settings.ReadString('Export', 'SaveBoard', 'ask')));
        Finally
            Settings.Free;
        End;
    End;
    If (Setting <> 'always') And (Setting <> 'never') Then Setting := 'ask';
    Result := Setting;
End;

{--- The log -------------------------------------------------------------------}

// Returns the number of lines of the log. Tries several times, since the log may be
// unreadable while another program writes it: a number that is too low would make the
// lines of earlier exports count as new.
Function KsCountLog(Dummy : Integer) : Integer;
Var
    Lines : TStringList;
    Count : Integer;
    Tries : Integer;
    Done  : Boolean;
Begin
    Count := 0;
    Tries := 0;
    Lines := TStringList.Create;
    Try
        Repeat
            Done := KsRead(KsLogPath(0), Lines);
            If Done Then Count := Lines.Count
            Else If FileExists(KsLogPath(0)) Then Sleep(KsPause)
            Else Done := True;
            Tries := Tries + 1;
        Until Done Or (Tries >= KsReadTries);
    Finally
        Lines.Free;
    End;
    Result := Count;
End;

Function KsHasStage(Line : String; Stage : String) : Boolean;
Var
    Has : Boolean;
Begin
    Has := Pos('] Stage: ' + Stage, Line) > 0;
    Result := Has;
End;

Function KsEndsPreparation(Line : String) : Boolean;
Var
    Ends : Boolean;
Begin
    Ends := KsHasStage(Line, KsStageRejected) Or KsHasStage(Line, KsStageFailed)
        Or KsHasStage(Line, KsStageLayers) Or KsHasStage(Line, KsStageMissing)
        Or KsHasStage(Line, KsStageCollision);
    Result := Ends;
End;

Function KsEndsDelivery(Line : String) : Boolean;
Var
    Ends : Boolean;
Begin
    Ends := KsHasStage(Line, KsStageDelivered) Or KsHasStage(Line, KsStageUndelivered)
        Or KsHasStage(Line, KsStageUnhandled);
    Result := Ends;
End;

// Returns the last line that ends a preparation or a delivery, after the given number of
// lines. A log that has become shorter was started over.
Function KsEndLine(Known : Integer; OfDelivery : Boolean) : String;
Var
    Lines : TStringList;
    I     : Integer;
    First : Integer;
    Line  : String;
Begin
    Line := '';
    Lines := TStringList.Create;
    Try
        If KsRead(KsLogPath(0), Lines) Then
        Begin
            First := Known;
            If Lines.Count < First Then First := 0;
            For I := First To Lines.Count - 1 Do
                If (OfDelivery And KsEndsDelivery(Lines.Strings[I]))
                    Or ((Not OfDelivery) And KsEndsPreparation(Lines.Strings[I])) Then
                    Line := Lines.Strings[I];
        End;
    Finally
        Lines.Free;
    End;
    Result := Line;
End;

// Returns the detail of a log line after a line break, or an empty text when it is not
// ASCII: the log is UTF-8 but is read in the code page, so such a path would be garbled.
Function KsDetail(Line : String) : String;
Var
    I    : Integer;
    Text : String;
Begin
    Text := '';
    I := Pos(' | ', Line);
    If I > 0 Then
    Begin
        Text := Copy(Line, I + 3, Length(Line));
        If KsAsciiPart(Text) = Text Then Text := KsBreak + Text
        Else Text := '';
    End;
    Result := Text;
End;

Function KsFailureOfCode(Code : Integer) : String;
Var
    Text : String;
Begin
    If (Code = 112) Or (Code = 39) Then
        Text := 'The disk with the folder ' + KsTempRoot + ' is full. Free some space and try again.'
    Else If (Code = 32) Or (Code = 33) Or (Code = 145) Then
        Text := 'A file in ' + KsTempRoot + ' is in use. Close every document named Bridge and every'
            + ' program that shows this folder, then try again.'
    Else If Code = 5 Then
        Text := 'Windows refused the access to the folder ' + KsTempRoot + ' or to the board file.'
    Else If (Code = 2) Or (Code = 3) Then
        Text := 'A file of the board or of the installation is gone. ' + KsReinstall(0)
    Else
        Text := 'The temporary copy of the board could not be made (Windows error '
            + IntToStr(Code) + ').';
    Result := Text;
End;

Function KsWhyRejected(Line : String) : String;
Var
    Text : String;
Begin
    If Pos(KsFragmentInside, Line) > 0 Then
        Text := 'This is the temporary copy that Kestrune made of a board. Open the original'
            + ' board and export that one.'
    Else If Pos(KsFragmentGone, Line) > 0 Then
        Text := 'The board file or one of its embedded boards is no longer where it was.'
    Else
        Text := 'The board files could not be checked. Is the drive or network folder connected?';
    Result := Text;
End;

Function KsWhyPrepareFailed(Line : String) : String;
Var
    Text : String;
Begin
    If KsHasStage(Line, KsStageRejected) Then
        Text := KsWhyRejected(Line)
    Else If KsHasStage(Line, KsStageMissing) Then
        Text := 'An embedded board disappeared while it was copied.' + KsDetail(Line)
    Else If KsHasStage(Line, KsStageCollision) Then
        Text := 'Two embedded boards have the same file name, or one is named like a file of the'
            + ' temporary project. Rename one of them.' + KsDetail(Line)
    Else If KsHasStage(Line, KsStageLayers) Then
        Text := 'The layers could not be selected in the output job: the file Bridge.OutJob of the'
            + ' installation is damaged or the disk is full. ' + KsReinstall(0)
    Else If KsHasStage(Line, KsStageFailed) Then
        Text := KsFailureOfCode(KsNumberAfter(KsFragmentCode, Line))
    Else
        Text := 'Kestrune.exe could not find your Windows profile folders.';
    Result := Text;
End;

{--- The mark of a run ---------------------------------------------------------}

// While a run is active, its exchange folder has a file <stamp>-running-<n>.txt with
// the current action and the seconds for which it is valid. It is never overwritten: a
// new one is created, then the old one deleted. It is not kept open. A run that was
// stopped by force leaves its mark, from which the next press reads where it stopped.

// Return the seconds since Windows started, and those of the user's clock, which may be
// set. A mark is too old only when both show it.
Function KsTicks(Dummy : Integer) : Integer;
Var
    Seconds : Integer;
Begin
    Seconds := GetTickCount Div 1000;
    Result := Seconds;
End;

Function KsClock(Dummy : Integer) : Integer;
Var
    Seconds : Integer;
Begin
    Seconds := Trunc((Now - 40000) * 86400);
    Result := Seconds;
End;

Procedure KsFillMark(Lines : TStringList; State : String; Call : String; Limit : Integer);
Begin
    Lines.Add('Board=' + KsBoardPath);
    Lines.Add('State=' + State);
    Lines.Add('Call=' + Call);
    Lines.Add('Version=' + KsVersion);
    Lines.Add('Until=' + KsMarkUntil);
    Lines.Add('Log=' + IntToStr(KsLogLines));
    Lines.Add('Limit=' + IntToStr(Limit));
    Lines.Add('Clock=' + IntToStr(KsClock(0)));
    Lines.Add('Ticks=' + IntToStr(KsTicks(0)));
End;

Procedure KsMark(State : String; Call : String; Limit : Integer);
Var
    Lines : TStringList;
    Path  : String;
    Old   : String;
Begin
    Old := KsMarkPath;
    If Old <> '' Then
        If Not FileExists(Old) Then KsMarkLost := True;
    If (Not KsMarkLost) And (KsExchange <> '') Then
    Begin
        KsMarkNumber := KsMarkNumber + 1;
        Path := KsExchangeFile('running-' + IntToStr(KsMarkNumber));
        Lines := TStringList.Create;
        Try
            KsFillMark(Lines, State, Call, Limit);
            If KsWriteFresh(Path, Lines) Then
            Begin
                KsMarkPath := Path;
                If Old <> '' Then DeleteFile(Old);
            End;
        Finally
            Lines.Free;
        End;
        KsMarkState := State;
        KsMarkIsCall := Call <> '';
        KsMarkAge := 0;
    End;
End;

// Writes the mark before a call of the host that returns at once. If an error in the
// call stops the interpreter, the mark has its name.
Procedure KsBeforeCall(Call : String);
Begin
    KsMark(KsMarkState, Call, KsCallLimit);
End;

// Does the same for calls that are made often, but only before the first one in this
// run.
Procedure KsBeforeFirst(Call : String);
Begin
    If KsNamed.IndexOf(Call) < 0 Then
    Begin
        KsNamed.Add(Call);
        KsMark(KsMarkState, Call, KsObjectsLimit);
    End;
End;

// Writes the mark before a call that may take long or shows a window of the host.
Procedure KsBeforeLongCall(Call : String);
Begin
    KsMark(KsMarkState, Call, KsWaitLimit);
End;

// Returns whether a mark of that time has not reached its limit yet.
Function KsIsYoung(Written : Integer; Moment : Integer; Limit : Integer) : Boolean;
Var
    Young : Boolean;
Begin
    Young := (Moment >= Written) And (Moment - Written <= Limit);
    Result := Young;
End;

// Returns the state of a mark's run: 'running', 'over' (it has ended) or 'stopped' (by
// force).
Function KsStateOfMark(Lines : TStringList) : String;
Var
    Limit   : Integer;
    State   : String;
    EndFile : String;
    Young   : Boolean;
Begin
    Limit := StrToIntDef(KsValue(Lines, 'Limit='), 0);
    Young := KsIsYoung(StrToIntDef(KsValue(Lines, 'Ticks='), 0), KsTicks(0), Limit)
        Or KsIsYoung(StrToIntDef(KsValue(Lines, 'Clock='), 0), KsClock(0), Limit);
    EndFile := KsValue(Lines, 'Until=');
    State := 'stopped';
    If Young Then State := 'running';
    // These two remain when the script has ended.
    If (KsValue(Lines, 'State=') = 'cancelled') Or (KsValue(Lines, 'State=') = 'handed over') Then
    Begin
        If Not Young Then State := 'over';
        If EndFile <> '' Then
            If FileExists(EndFile) Then State := 'over';
        If KsValue(Lines, 'State=') = 'handed over' Then
            If KsEndLine(StrToIntDef(KsValue(Lines, 'Log='), 0), True) <> '' Then State := 'over';
    End;
    Result := State;
End;

// Reads a mark; one that is being written at this moment is read again.
Function KsReadMark(Path : String; Lines : TStringList) : Boolean;
Var
    Tries : Integer;
    Done  : Boolean;
Begin
    Tries := 0;
    Done := False;
    While (Not Done) And (Tries < KsReadTries) And FileExists(Path) Do
    Begin
        If KsRead(Path, Lines) Then Done := KsValue(Lines, 'Ticks=') <> '';
        If Not Done Then Sleep(KsPause);
        Tries := Tries + 1;
    End;
    Result := Done;
End;

// Returns the text that a second export cannot start now.
Function KsRunningText(Path : String; Lines : TStringList) : String;
Var
    Text : String;
    Age  : Integer;
Begin
    Age := KsClock(0) - StrToIntDef(KsValue(Lines, 'Clock='), 0);
    If (KsValue(Lines, 'State=') = 'delivering') Or (KsValue(Lines, 'State=') = 'handed over') Then
        Text := 'The last archive is still being delivered. Wait until it has arrived, then press the'
            + ' button again.'
    Else If KsValue(Lines, 'State=') = 'cancelled' Then
        Text := 'The export that you cancelled has not ended yet. Press the button again in a minute.'
    Else
        Text := 'An export is running, here or in another window of Altium Designer. Wait until it has'
            + ' ended.';
    Text := Text + KsBreak + KsValue(Lines, 'Board=') + KsBreak + KsBreak
        + 'Last sign of life: ' + IntToStr(Age) + ' s ago';
    If KsValue(Lines, 'Call=') <> '' Then Text := Text + ', at ' + KsValue(Lines, 'Call=');
    Text := Text + '.' + KsBreak + 'If it was stopped by force, this counts no longer after '
        + KsValue(Lines, 'Limit=') + ' s, or as soon as you delete the file' + KsBreak + Path;
    Result := Text;
End;

// Returns where the last export was stopped, and what the user can do.
Function KsStoppedText(Lines : TStringList) : String;
Var
    Text : String;
    Call : String;
Begin
    Call := KsValue(Lines, 'Call=');
    If Call = '' Then Call := 'waiting (' + KsValue(Lines, 'State=') + ')';
    Text := 'The last export was stopped in the middle.' + KsBreak
        + 'Board: ' + KsValue(Lines, 'Board=') + KsBreak
        + 'At: ' + Call + KsBreak
        + 'Altium Designer: ' + KsValue(Lines, 'Version=') + KsBreak + KsBreak
        + 'If an error of the script stopped it, please send this text and the log to those from whom'
        + ' you have Kestrune (Ctrl+C copies it). This export starts anew.';
    If KsRuntimeRoot <> '' Then Text := Text + KsBreak + 'Log: ' + KsLogPath(0);
    Result := Text;
End;

// Reads the mark of another run: sets KsProblem for an active run, KsNotice for a stopped
// one. Returns False when the file disappeared, since it is being replaced.
Function KsLookAtMark(Path : String) : Boolean;
Var
    Lines : TStringList;
    State : String;
    There : Boolean;
Begin
    There := True;
    Lines := TStringList.Create;
    Try
        If KsReadMark(Path, Lines) Then
        Begin
            State := KsStateOfMark(Lines);
            If State = 'running' Then KsProblem := KsRunningText(Path, Lines);
            If State = 'stopped' Then KsNotice := KsStoppedText(Lines);
        End
        Else
            There := FileExists(Path);
    Finally
        Lines.Free;
    End;
    Result := There;
End;

Function KsIsOwnFile(Name : String) : Boolean;
Var
    Own : Boolean;
Begin
    Own := Pos(KsStamp + '-', Name) = 1;
    Result := Own;
End;

// Reads the marks of all other runs. Returns False when one disappeared meanwhile.
Function KsLookAtMarks(Dummy : Integer) : Boolean;
Var
    Marks : TStringList;
    Name  : String;
    I     : Integer;
    There : Boolean;
Begin
    There := True;
    Marks := TStringList.Create;
    Try
        FindFiles(KsExchange, '*-running-*.txt', faAnyFile, False, Marks);
        For I := 0 To Marks.Count - 1 Do
        Begin
            Name := ExtractFileName(Marks.Strings[I]);
            If Not KsIsOwnFile(Name) Then
                If Not KsLookAtMark(KsExchange + '\' + Name) Then There := False;
        End;
    Finally
        Marks.Free;
    End;
    Result := There;
End;

// Reads the marks of other runs, again when one disappears: its run is writing the next
// one.
Procedure KsLookForOtherRuns(Dummy : Integer);
Var
    Tries : Integer;
    There : Boolean;
Begin
    Tries := 0;
    Repeat
        There := KsLookAtMarks(0);
        If Not There Then Sleep(KsPause);
        Tries := Tries + 1;
    Until There Or (Tries > KsReadTries) Or (KsProblem <> '');
    If (Not There) And (KsProblem = '') Then
        KsProblem := 'Another export starts or ends at this moment. Press the button again.';
End;

// Removes the exchange files of this run, or those of all others, which requires that
// no other run is active.
Procedure KsRemoveFiles(Own : Boolean);
Var
    Files : TStringList;
    Name  : String;
    I     : Integer;
Begin
    Files := TStringList.Create;
    Try
        FindFiles(KsExchange, '*.*', faAnyFile, False, Files);
        For I := 0 To Files.Count - 1 Do
        Begin
            Name := ExtractFileName(Files.Strings[I]);
            If KsIsOwnFile(Name) = Own Then KsDeleteIfThere(KsExchange + '\' + Name);
        End;
    Finally
        Files.Free;
    End;
    If Own Then KsMarkPath := '';
End;

// Sets a stamp that no file of the folder has.
Procedure KsNewStamp(Dummy : Integer);
Var
    Number : Integer;
    Files  : TStringList;
Begin
    Number := GetTickCount;
    If Number < 0 Then Number := -Number;
    Files := TStringList.Create;
    Try
        Repeat
            While Files.Count > 0 Do Files.Delete(0);
            Number := Number + 1;
            KsStamp := IntToStr(Number);
            FindFiles(KsExchange, KsStamp + '-*.*', faAnyFile, False, Files);
        Until Files.Count = 0;
    Finally
        Files.Free;
    End;
End;

Procedure KsDropFirstMark(Path : String);
Begin
    If Path <> '' Then KsDeleteIfThere(Path);
End;

// Writes the mark of this run first and then reads those of others, so that of two
// presses at the same moment at most one goes on.
Procedure KsTakeMark(Dummy : Integer);
Var
    FirstMark : String;
Begin
    KsBeforeCall('FindFiles');
    FirstMark := KsMarkPath;
    KsMarkPath := '';
    KsMarkLost := False;
    KsExchange := KsHome(0) + 'Exchange';
    If Not DirectoryExists(KsExchange) Then ForceDirectories(KsExchange);
    If DirectoryExists(KsExchange) Then
    Begin
        KsNewStamp(0);
        KsMark('starting', '', KsWaitLimit);
    End;
    KsDropFirstMark(FirstMark);
    If KsMarkPath = '' Then
        KsProblem := 'No file could be written in ' + KsExchange + '. Is the disk full?'
    Else
    Begin
        KsLookForOtherRuns(0);
        If KsProblem = '' Then KsRemoveFiles(False)
        Else KsNotice := '';
    End;
End;

{--- The first mark -------------------------------------------------------------}

// The exchange folder is found by calls of the host, and each of them may stop the
// interpreter. The first marks are therefore in the folder for temporary files. No mark
// can be written before the call that returns this folder: if that call stops the
// interpreter, it does so at each press, and the host shows the line.

// Reports where earlier presses were stopped before they had found the installation.
// The names of these marks are fixed, so no search for files is needed.
Procedure KsLookAtFirstMarks(Dummy : Integer);
Var
    I    : Integer;
    Path : String;
Begin
    For I := 1 To KsFirstMarks Do
    Begin
        Path := KsExchangeFile('running-' + IntToStr(I));
        If FileExists(Path) Then
        Begin
            KsLookAtMark(Path);
            // A young mark may be that of a press in another window at this moment.
            If KsProblem = '' Then KsDeleteIfThere(Path);
            KsProblem := '';
        End;
    End;
    If KsNotice <> '' Then ShowWarning(KsNotice);
    KsNotice := '';
End;

Procedure KsTakeFirstMark(Dummy : Integer);
Begin
    KsStamp := KsFirstStamp;
    KsExchange := SpecialFolder_Temporary;
    If Copy(KsExchange, Length(KsExchange), 1) = '\' Then
        KsExchange := Copy(KsExchange, 1, Length(KsExchange) - 1);
    If Not DirectoryExists(KsExchange) Then KsExchange := '';
    If KsExchange <> '' Then KsLookAtFirstMarks(0);
End;

// Returns the path of an open project; empty when the host names none.
Function KsProjectPath(Number : Integer) : String;
Var
    Project : IProject;
    Path    : String;
Begin
    Path := '';
    KsBeforeFirst('IWorkspace.DM_Projects');
    Project := GetWorkspace.DM_Projects(Number);
    KsBeforeFirst('IProject.DM_ProjectFullPath');
    If Project <> Nil Then Path := Project.DM_ProjectFullPath;
    Result := Path;
End;

Function KsProjectCount(Dummy : Integer) : Integer;
Var
    Count : Integer;
Begin
    Count := 0;
    KsBeforeFirst('GetWorkspace');
    If GetWorkspace <> Nil Then
    Begin
        KsBeforeFirst('IWorkspace.DM_ProjectCount');
        Count := GetWorkspace.DM_ProjectCount;
    End;
    Result := Count;
End;

Function KsLocateInstallation(Dummy : Integer) : Boolean;
Var
    Path  : String;
    I     : Integer;
    Found : Boolean;
Begin
    Found := False;
    For I := 0 To KsProjectCount(0) - 1 Do
    Begin
        Path := KsProjectPath(I);
        If (Not Found) And (UpperCase(ExtractFileName(Path)) = 'KESTRUNE.PRJSCR') Then
            Found := KsReadRoots(ExtractFilePath(Path) + 'Kestrune.pas');
    End;
    // The list of open projects may lack a global script project.
    If (Not Found) And (KsHost >= 19) Then
    Begin
        KsBeforeFirst('GetRunningScriptProjectName');
        Found := KsReadRoots(ExtractFilePath(GetRunningScriptProjectName) + 'Kestrune.pas');
    End;
    If Not Found Then
    Begin
        KsBeforeFirst('SpecialFolder_AltiumApplicationData');
        Found := KsReadRoots(KsRuntimeBeside(SpecialFolder_AltiumApplicationData));
    End;
    If Not Found Then
        Found := KsReadRoots(KsRuntimeBeside(SpecialFolder_Temporary));
    Result := Found;
End;

{--- The wait window -----------------------------------------------------------}

Procedure KsShowTime(Dummy : Integer);
Begin
    KestruneWaitForm.TimeLabel.Caption :=
        'Running for ' + IntToStr(Trunc((Now - KsStart) * 86400)) + ' s.';
End;

// Lets the host process its messages; the user may click anything meanwhile. Every wait
// of the script calls this.
Procedure KsPump(Dummy : Integer);
Begin
    If KsMarkIsCall Then KsMark(KsMarkState, '', KsWaitLimit);
    KsShowTime(0);
    Application.ProcessMessages;
End;

// Shows the step that begins; the bar shows the steps that are done.
Procedure KsShowStep(Step : Integer; Name : String; S : String);
Begin
    KsStepText := 'Step ' + IntToStr(Step) + ' of ' + IntToStr(KsSteps) + ': ' + S;
    KsMark(Name, '', KsWaitLimit);
    KestruneWaitForm.StepLabel.Caption := KsStepText;
    KestruneWaitForm.StepBar.Position := Step - 1;
    KsBeforeFirst('KestruneWaitForm.Refresh');
    KestruneWaitForm.Refresh;
    KsPump(0);
End;

// Returns whether the user has pressed the button, which then disables itself, or has
// closed the window.
Function KsCancelled(Dummy : Integer) : Boolean;
Var
    Cancelled : Boolean;
Begin
    Cancelled := (Not KestruneWaitForm.CancelButton.Enabled) Or (Not KestruneWaitForm.Visible);
    Result := Cancelled;
End;

Function KsQuits(Dummy : Integer) : Boolean;
Var
    Quits : Boolean;
Begin
    Quits := Client.IsQuitting;
    Result := Quits;
End;

// Returns whether the export must end.
Function KsMustEnd(Dummy : Integer) : Boolean;
Var
    Ends : Boolean;
Begin
    Ends := KsCancelled(0) Or KsMarkLost Or (KsProblem <> '');
    If Not Ends Then Ends := KsQuits(0);
    Result := Ends;
End;

// Waits between two polls while the window processes messages.
Procedure KsRest(Dummy : Integer);
Begin
    Sleep(KsPause);
    KsMarkAge := KsMarkAge + 1;
    If KsMarkAge >= KsMarkLooks Then KsMark(KsMarkState, '', KsWaitLimit);
    KsPump(0);
End;

Procedure KsOpenWindow(Dummy : Integer);
Begin
    KsBeforeCall('KestruneWaitForm.Show');
    KestruneWaitForm.BoardLabel.Caption := KsShortName(KsBoardPath);
    KestruneWaitForm.StepLabel.Caption := ' ';
    KestruneWaitForm.NoteLabel.Caption := ' ';
    KestruneWaitForm.StepBar.Max := KsSteps;
    KestruneWaitForm.StepBar.Position := 0;
    KestruneWaitForm.CancelButton.Enabled := True;
    KestruneWaitForm.Show;
    // A host that lacks this member stops the script here, before any change.
    KsBeforeCall('Client.IsQuitting');
    KsQuits(0);
End;

{--- Kestrune.exe --------------------------------------------------------------}

// Starts Kestrune.exe; the host neither waits nor returns the exit code.
Function KsRun(Arguments : String) : Boolean;
Var
    Code    : Integer;
    Started : Boolean;
Begin
    KsBeforeCall('RunApplication');
    Code := RunApplication(KsQuoted(KsRuntimeRoot + '\Kestrune.exe') + ' ' + Arguments);
    Started := Code = 0;
    If Not Started Then KsBeforeCall('GetErrorMessage');
    If Not Started Then
        KsProblem := 'Kestrune.exe could not be started: ' + GetErrorMessage(Code) + KsBreak +
            'A virus scanner may have locked it. ' + KsReinstall(0);
    Result := Started;
End;

// Polls a file until it has a first line, and returns that line. Returns an empty text
// when the time is over; when the export must end, EndSeconds are left.
Function KsAwait(FileName : String; Seconds : Integer; EndSeconds : Integer) : String;
Var
    Looks    : Integer;
    EndLooks : Integer;
    Line     : String;
Begin
    Looks := 0;
    EndLooks := 0;
    Repeat
        Line := KsFirstLine(FileName);
        If Line = '' Then
        Begin
            If KsMustEnd(0) Then EndLooks := EndLooks + 1;
            If KsQuits(0) Then EndLooks := EndSeconds * KsLooksPerSecond + 1;
            Looks := Looks + 1;
            If EndLooks <= EndSeconds * KsLooksPerSecond Then KsRest(0);
        End;
    Until (Line <> '') Or (Looks > Seconds * KsLooksPerSecond)
        Or (EndLooks > EndSeconds * KsLooksPerSecond);
    Result := Line;
End;

// Centres the window on the monitor of the host. Needs the handle of the form, and a
// host that lacks it stops the interpreter: the probe checks this, and leaves a file
// for the host version that has it. Without the file the form centres itself on the
// screen.
Procedure KsCentreWindow(Dummy : Integer);
Var
    OwnWindow  : Integer;
    HostWindow : Integer;
Begin
    If FileExists(KsHome(0) + 'form-handle-' + KsVersion + '.txt') Then
    Begin
        KsBeforeCall('Client.MainWindowHandle');
        HostWindow := Client.MainWindowHandle;
        KsBeforeCall('KestruneWaitForm.Handle');
        OwnWindow := KestruneWaitForm.Handle;
        KsRun('--position-window ' + IntToStr(OwnWindow) + ' ' + IntToStr(HostWindow));
        // The export does not depend on it.
        KsProblem := '';
    End;
End;

{--- What the board needs ------------------------------------------------------}

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

Procedure KsNoteCopperName(Name : String);
Begin
    KsNote(KsPlotKeys, 'Plot' + Name + 'Plot');
    KsNote(KsFindings, 'Copper=' + Name);
End;

// Notes a copper layer of the stack, also one without an object: an empty plane is a
// full sheet of copper. The host numbers layers in two ways. For an unknown number all
// copper layers are noted, since too many do no harm.
Procedure KsNoteCopper(Id : Integer);
Begin
    If (Id = eTopLayer) Or (Id = KsTopCopper) Then
        KsNoteCopperName('TopLayer')
    Else If (Id = eBottomLayer) Or (Id = KsBottomCopper) Then
        KsNoteCopperName('BottomLayer')
    Else If (Id >= eMidLayer1) And (Id < eMidLayer1 + KsMidLayers) Then
        KsNoteCopperName('MidLayer' + IntToStr(Id - eMidLayer1 + 1))
    Else If (Id > KsTopCopper) And (Id <= KsTopCopper + KsMidLayers) Then
        KsNoteCopperName('MidLayer' + IntToStr(Id - KsTopCopper))
    Else If (Id >= eInternalPlane1) And (Id < eInternalPlane1 + KsPlanes) Then
        KsNoteCopperName('InternalPlane' + IntToStr(Id - eInternalPlane1 + 1))
    Else If (Id >= KsFirstPlane) And (Id < KsFirstPlane + KsPlanes) Then
        KsNoteCopperName('InternalPlane' + IntToStr(Id - KsFirstPlane + 1))
    Else
    Begin
        KsNote(KsFindings, 'Copper=number ' + IntToStr(Id));
        KsNoteAllCopper(0);
    End;
End;

// Notes a mechanical layer by its number, not by the user's name for it: the output job
// has the host's fixed names.
Procedure KsNoteMechanical(Number : Integer);
Begin
    KsNote(KsFindings, 'Mechanical=' + IntToStr(Number));
    If Number <= 16 Then
        KsNote(KsPlotKeys, 'PlotMechanical' + IntToStr(Number) + 'Plot')
    Else
        KsNote(KsLayerNames, 'Mechanical Layer ' + IntToStr(Number));
    If Number > KsLastMechanical Then
        KsNote(KsTooHigh, IntToStr(Number));
End;

// Returns an iterator over objects of some kinds on some layers of KsBoard. Only one may
// exist at a time: a second one hangs the interpreter of some hosts.
Function KsIterator(Objects : TSet; Layers : TSet) : IPCB_BoardIterator;
Var
    Iterator : IPCB_BoardIterator;
Begin
    KsBeforeFirst('IPCB_Board.BoardIterator_Create');
    Iterator := KsBoard.BoardIterator_Create;
    KsBeforeFirst('IPCB_BoardIterator.AddFilter_ObjectSet');
    Iterator.AddFilter_ObjectSet(Objects);
    KsBeforeFirst('IPCB_BoardIterator.AddFilter_LayerSet');
    Iterator.AddFilter_LayerSet(Layers);
    KsBeforeFirst('IPCB_BoardIterator.AddFilter_Method');
    Iterator.AddFilter_Method(eProcessAll);
    KsBeforeFirst('IPCB_BoardIterator.FirstPCBObject, NextPCBObject');
    Result := Iterator;
End;

Procedure KsEndIterator(Iterator : IPCB_BoardIterator);
Begin
    KsBeforeFirst('IPCB_Board.BoardIterator_Destroy');
    KsBoard.BoardIterator_Destroy(Iterator);
End;

// Returns whether there is an object of some kinds on a layer.
Function KsHasObject(Objects : TSet; Layer : Integer) : Boolean;
Var
    Iterator : IPCB_BoardIterator;
    Item     : IPCB_Primitive;
    Has      : Boolean;
Begin
    Has := True;
    Iterator := KsIterator(Objects, MkSet(Layer));
    Try
        Item := Iterator.FirstPCBObject;
        Has := Item <> Nil;
    Finally
        KsEndIterator(Iterator);
    End;
    Result := Has;
End;

// Notes a layer that is used. Checks its objects when its flag is False, since any
// script can set the flag.
Procedure KsNoteIfUsed(Layer : Integer; Name : String);
Var
    Used : Boolean;
Begin
    KsBeforeFirst('IPCB_Board.LayerIsUsed');
    Used := KsBoard.LayerIsUsed[Layer];
    If Not Used Then Used := KsHasObject(AllObjects, Layer);
    If Used Then
    Begin
        KsNote(KsPlotKeys, 'Plot' + Name);
        KsNote(KsFindings, 'Layer=' + Name);
    End;
End;

Procedure KsCollectStack(Dummy : Integer);
Var
    Stack : IPCB_MasterLayerStack;
    Layer : IPCB_LayerObject;
Begin
    If KsHost >= 17 Then
    Begin
        KsBeforeFirst('IPCB_Board.MasterLayerStack');
        Stack := KsBoard.MasterLayerStack;
        KsBeforeFirst('IPCB_MasterLayerStack.First');
        Layer := Stack.First(eLayerClass_Electrical);
        If Layer = Nil Then KsNoteAllCopper(0);
        While Layer <> Nil Do
        Begin
            KsBeforeFirst('IPCB_LayerObject.V7_LayerID');
            KsNoteCopper(Layer.V7_LayerID.ID);
            KsBeforeFirst('IPCB_MasterLayerStack.Next');
            Layer := Stack.Next(eLayerClass_Electrical, Layer);
        End;
    End
    Else
        KsNoteAllCopper(0);
End;

Procedure KsNoteIfMechanical(Layer : IPCB_MechanicalLayer; Number : Integer);
Begin
    If (Layer <> Nil) And (KsHost >= 17) Then
    Begin
        KsBeforeFirst('IPCB_MechanicalLayer.UsedByPrims');
        If Layer.UsedByPrims Then KsNoteMechanical(Number);
    End;
End;

Procedure KsCollectMechanical(Dummy : Integer);
Var
    Stack : IPCB_MasterLayerStack;
    Layer : IPCB_MechanicalLayer;
    I     : Integer;
Begin
    If KsHost >= 19 Then
    Begin
        Stack := KsBoard.MasterLayerStack;
        KsBeforeFirst('IPCB_MasterLayerStack.GetMechanicalLayer');
        For I := 1 To 1024 Do
        Begin
            Layer := Stack.GetMechanicalLayer(I);
            KsNoteIfMechanical(Layer, I);
        End;
    End
    Else If KsHost >= 17 Then
    Begin
        Stack := KsBoard.MasterLayerStack;
        KsBeforeFirst('IPCB_MasterLayerStack.LayerObject_V7, ILayerUtils.MechanicalLayer');
        For I := 1 To 32 Do
        Begin
            Layer := Stack.LayerObject_V7(LayerUtils.MechanicalLayer(I));
            KsNoteIfMechanical(Layer, I);
        End;
    End
    Else
        // A filter by a mechanical layer may not work in these older hosts.
        For I := 1 To 32 Do KsNoteMechanical(I);
End;

Procedure KsCollectFixed(Dummy : Integer);
Begin
    KsNoteIfUsed(eTopOverlay,    'TopOverlayPlot');
    KsNoteIfUsed(eBottomOverlay, 'BottomOverlayPlot');
    KsNoteIfUsed(eTopPaste,      'TopPastePlot');
    KsNoteIfUsed(eBottomPaste,   'BottomPastePlot');
    KsNoteIfUsed(eTopSolder,     'TopSolderPlot');
    KsNoteIfUsed(eBottomSolder,  'BottomSolderPlot');
    KsNoteIfUsed(eKeepOutLayer,  'KeepOutLayerPlot');
    KsNoteIfUsed(eDrillDrawing,  'DrillDrawingPair0_Plot');
    KsNoteIfUsed(eDrillGuide,    'DrillGuidePair0_Plot');
End;

// Notes a layer with a track, an arc or a fill. Texts do not count, since they may be
// hidden.
Procedure KsNoteIfDrawn(Layer : Integer; Name : String);
Begin
    If KsHasObject(MkSet(eTrackObject, eArcObject, eFillObject), Layer) Then
        KsNote(KsFindings, 'Drawn=' + Name);
End;

Procedure KsCollectDrawn(Dummy : Integer);
Begin
    KsNoteIfDrawn(eTopOverlay,    'TopOverlay');
    KsNoteIfDrawn(eBottomOverlay, 'BottomOverlay');
    KsNoteIfDrawn(eTopPaste,      'TopPaste');
    KsNoteIfDrawn(eBottomPaste,   'BottomPaste');
    KsNoteIfDrawn(eTopSolder,     'TopSolder');
    KsNoteIfDrawn(eBottomSolder,  'BottomSolder');
    KsNoteIfDrawn(eKeepOutLayer,  'KeepOut');
    KsNoteIfDrawn(eDrillDrawing,  'DrillDrawing');
End;

Procedure KsCollectVias(Dummy : Integer);
Var
    Iterator : IPCB_BoardIterator;
    Via      : IPCB_Via;
Begin
    Iterator := KsIterator(MkSet(eViaObject), AllLayers);
    Try
        Via := Iterator.FirstPCBObject;
        While Via <> Nil Do
        Begin
            KsNote(KsFindings, 'Drill=plated');
            KsPads := True;
            KsHoles := KsHoles + 1;
            Via := Iterator.NextPCBObject;
        End;
    Finally
        KsEndIterator(Iterator);
    End;
End;

Procedure KsNotePad(Pad : IPCB_Pad);
Begin
    KsPads := True;
    KsBeforeFirst('IPCB_Pad.HoleSize');
    If Pad.HoleSize > 0 Then
    Begin
        KsHoles := KsHoles + 1;
        KsBeforeFirst('IPCB_Pad.Plated');
        If Pad.Plated Then KsNote(KsFindings, 'Drill=plated')
        Else KsNote(KsFindings, 'Drill=unplated');
    End
    Else
    Begin
        KsBeforeFirst('IPCB_Pad.Layer');
        If Pad.Layer <> eBottomLayer Then KsTopPads := True;
        If Pad.Layer <> eTopLayer Then KsBottomPads := True;
    End;
End;

Procedure KsCollectPads(Dummy : Integer);
Var
    Iterator : IPCB_BoardIterator;
    Pad      : IPCB_Pad;
Begin
    Iterator := KsIterator(MkSet(ePadObject), AllLayers);
    Try
        Pad := Iterator.FirstPCBObject;
        While Pad <> Nil Do
        Begin
            KsNotePad(Pad);
            Pad := Iterator.NextPCBObject;
        End;
    Finally
        KsEndIterator(Iterator);
    End;
End;

// Adds the embedded boards of KsBoard to the list of boards to read.
Procedure KsCollectChildren(Folder : String);
Var
    Iterator : IPCB_BoardIterator;
    Child    : IPCB_EmbeddedBoard;
Begin
    Iterator := KsIterator(MkSet(eEmbeddedBoardObject), AllLayers);
    Try
        Child := Iterator.FirstPCBObject;
        While Child <> Nil Do
        Begin
            KsChildren.Add(Child);
            KsChildFolder.Add(Folder);
            Child := Iterator.NextPCBObject;
        End;
    Finally
        KsEndIterator(Iterator);
    End;
End;

// Notes all layers: for a board that the host has not loaded, whose content is unknown,
// and for a mirrored one, whose layers are those of the other side.
Procedure KsNoteEverything(Why : String);
Var
    I : Integer;
Begin
    KsNote(KsFindings, 'Unknown=' + Why);
    KsNoteAllCopper(0);
    For I := 1 To KsLastMechanical Do KsNoteMechanical(I);
    KsNote(KsPlotKeys, 'PlotTopOverlayPlot');
    KsNote(KsPlotKeys, 'PlotBottomOverlayPlot');
    KsNote(KsPlotKeys, 'PlotKeepOutLayerPlot');
    KsNote(KsPlotKeys, 'PlotDrillDrawingPair0_Plot');
    KsNote(KsPlotKeys, 'PlotDrillGuidePair0_Plot');
    KsPads := True;
    KsTopPads := True;
    KsBottomPads := True;
End;

Procedure KsLookAtBoard(Path : String);
Begin
    KsVisited.Add(UpperCase(Path));
    KsCollectStack(0);
    KsCollectMechanical(0);
    KsCollectFixed(0);
    KsCollectDrawn(0);
    KsCollectVias(0);
    KsCollectPads(0);
    KsCollectChildren(ExtractFilePath(Path));
End;

// Returns the path of the embedded board in KsBoard: its stored path, or that of a file
// of the same name which the host found elsewhere. Under another name the copy of the
// panel would not find it.
Function KsPathOfChild(Stored : String; Folder : String) : String;
Var
    Path : String;
Begin
    Path := Stored;
    If Not KsIsAbsolute(Stored) Then Path := Folder + Stored;
    If (Not FileExists(Path)) And (KsBoard <> Nil) Then
    Begin
        If KsSamePath(ExtractFileName(KsBoard.FileName), ExtractFileName(Stored)) Then
            If FileExists(KsBoard.FileName) Then Path := KsBoard.FileName;
    End;
    Result := Path;
End;

// Notes an embedded board with unsaved changes, which the export does not have, since it
// reads the file.
Procedure KsNoteIfUnsaved(Path : String);
Var
    Document : IServerDocument;
Begin
    Document := Client.GetDocumentByPath(Path);
    If Document <> Nil Then KsBeforeFirst('IServerDocument.Modified');
    If Document <> Nil Then
        If Document.Modified Then KsNote(KsUnsaved, Path);
End;

// Collects the file and the layers of an embedded board that was not read yet.
Procedure KsLookInside(Path : String);
Begin
    KsNote(KsFindings, 'Child=' + Path);
    If FileExists(Path) Then KsNote(KsSources, Path);
    KsNoteIfUnsaved(Path);
    If KsBoard <> Nil Then KsLookAtBoard(Path)
    Else
    Begin
        KsVisited.Add(UpperCase(Path));
        KsNoteEverything('a board that is not loaded');
    End;
End;

// Reads one embedded board. Some hosts do not accept an embedded board as an argument,
// so it is passed in KsBoard. The same board may be embedded several times, each time
// by another path.
Procedure KsLookAtChild(Child : IPCB_EmbeddedBoard; Folder : String);
Var
    Stored : String;
    Path   : String;
Begin
    KsBeforeFirst('IPCB_EmbeddedBoard.DocumentPath');
    Stored := Child.DocumentPath;
    KsBeforeCall('IPCB_EmbeddedBoard.ChildBoard');
    KsBoard := Child.ChildBoard;
    Path := KsPathOfChild(Stored, Folder);
    If (Not KsIsAbsolute(Stored)) And (ExtractFileName(Stored) <> Stored) Then
        KsNote(KsAway, Stored)
    Else If Not FileExists(Path) Then
        KsNote(KsMissing, Path);
    KsBeforeFirst('IPCB_EmbeddedBoard.MirrorFlag');
    If Child.MirrorFlag Then KsNoteEverything(KsMirrored);
    If KsVisited.IndexOf(UpperCase(Path)) < 0 Then KsLookInside(Path);
End;

// Reads each embedded board; the list grows meanwhile.
Procedure KsLookAtChildren(Dummy : Integer);
Var
    Child : IPCB_EmbeddedBoard;
    I     : Integer;
Begin
    I := 0;
    While I < KsChildren.Count Do
    Begin
        Child := KsChildren.Items[I];
        KsLookAtChild(Child, KsChildFolder.Strings[I]);
        I := I + 1;
    End;
End;

// Notes the drill fields and those of the masks. The layer selection treats drill
// fields as layers: a manifest without them would switch all holes off.
Procedure KsNoteDrillsAndMasks(Dummy : Integer);
Begin
    KsNote(KsPlotKeys, 'PlotPTHPair0_Plot');
    KsNote(KsPlotKeys, 'PlotNPTHPair0_Plot');
    If KsPads Then
    Begin
        KsNote(KsPlotKeys, 'PlotTopSolderPlot');
        KsNote(KsPlotKeys, 'PlotBottomSolderPlot');
    End;
    If KsTopPads Then KsNote(KsPlotKeys, 'PlotTopPastePlot');
    If KsBottomPads Then KsNote(KsPlotKeys, 'PlotBottomPastePlot');
End;

// Returns two boards with the same file name, which cannot both be copied into the
// temporary folder; empty when there are none.
Function KsSameNames(Dummy : Integer) : String;
Var
    I    : Integer;
    J    : Integer;
    Text : String;
Begin
    Text := '';
    For I := 0 To KsSources.Count - 1 Do
        For J := I + 1 To KsSources.Count - 1 Do
            If KsSamePath(ExtractFileName(KsSources.Strings[I]), ExtractFileName(KsSources.Strings[J])) Then
                Text := KsSources.Strings[I] + KsBreak + KsSources.Strings[J];
    Result := Text;
End;

Procedure KsJudgeBoards(Dummy : Integer);
Var
    Twice : String;
Begin
    Twice := KsSameNames(0);
    If KsMissing.Count > 0 Then
        KsProblem := 'The panel uses boards that cannot be found:' + KsBreak + KsMissing.Text
            + 'Embedded boards must lie where the panel looks for them, usually in its own folder.'
    Else If KsAway.Count > 0 Then
        KsProblem := 'The panel names embedded boards by a folder that a copy of the panel does not'
            + ' find:' + KsBreak + KsAway.Text
            + 'Put them into the folder of the panel and choose them there anew.'
    Else If Twice <> '' Then
        KsProblem := 'Two embedded boards have the same file name. Rename one of them:'
            + KsBreak + Twice;
    If KsUnsaved.Count > 0 Then
        KsAddNotice('These embedded boards have changes that are not saved. They were exported as they'
            + ' were saved last:' + KsBreak + Trim(KsUnsaved.Text));
    If KsTooHigh.Count > 0 Then
        KsAddNotice('Kestrune did not ask for mechanical layers above ' + IntToStr(KsLastMechanical)
            + '. Look into the archive whether it has those that this board uses:'
            + KsBreak + KsTooHigh.CommaText);
End;

{--- Smallest clearance --------------------------------------------------------}

// Returns the ten-thousandths of a mil in the unit at the beginning of a text; 0 for
// none.
Function KsUnit(S : String) : Double;
Var
    Parts : Double;
Begin
    Parts := 0;
    If Pos('mil)', S) = 1 Then Parts := 10000
    Else If Pos('mm)', S) = 1 Then Parts := 10000 / 0.0254
    Else If (Pos('in)', S) = 1) Or (Pos('inch)', S) = 1) Then Parts := 10000000;
    Result := Parts;
End;

// Returns the gap that a clearance rule describes, in ten-thousandths of a mil; 0 when
// the text is not that of a clearance rule.
Function KsGap(Descriptor : String) : Double;
Var
    I      : Integer;
    Gap    : Double;
    Place  : Double;
    Symbol : String;
    Rest   : String;
    Digits : Boolean;
Begin
    Gap := 0;
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
                Gap := Gap * 10 + StrToIntDef(Symbol, 0);
                Place := Place * 10;
            End
            Else
                Digits := False;
            If Digits Then I := I + 1;
        End;
        If Place > 1 Then Gap := Gap / Place;
        Gap := Gap * KsUnit(Trim(Copy(Rest, I, Length(Rest))));
    End;
    Result := Gap;
End;

Procedure KsNoteRule(Rule : IPCB_Rule);
Var
    Gap : Integer;
Begin
    KsBeforeFirst('IPCB_Rule.RuleKind, Enabled, Descriptor');
    If Rule.RuleKind = eRule_Clearance Then
        If Rule.Enabled Then
        Begin
            Gap := Round(KsGap(Rule.Descriptor));
            If Gap <= 0 Then KsClearanceOk := False
            Else If (KsClearance = 0) Or (Gap < KsClearance) Then KsClearance := Gap;
        End;
End;

// Finds the smallest gap of the enabled rules; none when one of them cannot be read,
// since an archive without this value is better than no archive.
Procedure KsCollectClearance(Dummy : Integer);
Var
    Iterator : IPCB_BoardIterator;
    Rule     : IPCB_Rule;
Begin
    KsClearance := 0;
    KsClearanceOk := True;
    Iterator := KsIterator(MkSet(eRuleObject), AllLayers);
    Try
        Try
            Rule := Iterator.FirstPCBObject;
            While Rule <> Nil Do
            Begin
                KsNoteRule(Rule);
                Rule := Iterator.NextPCBObject;
            End;
        Except
            KsClearanceOk := False;
        End;
    Finally
        KsEndIterator(Iterator);
    End;
    If Not KsClearanceOk Then KsClearance := 0;
End;

// Reads everything that is needed of the board's objects in one go: no message of the host
// is handled meanwhile, so the user cannot close the board.
Procedure KsCollectBoards(Dummy : Integer);
Begin
    KsBeforeFirst('PCBServer.GetCurrentPCBBoard');
    KsBoard := PCBServer.GetCurrentPCBBoard;
    If KsBoard <> Nil Then
        If Not KsSamePath(KsBoard.FileName, KsBoardPath) Then KsBoard := Nil;
    If KsBoard = Nil Then
        KsProblem := 'The board is no longer in front. Click into it and press the button again.'
    Else
    Begin
        KsPads := False;
        KsTopPads := False;
        KsBottomPads := False;
        KsCollectClearance(0);
        KsLookAtBoard(KsBoardPath);
        KsLookAtChildren(0);
        KsNoteDrillsAndMasks(0);
        KsJudgeBoards(0);
    End;
    KsBoard := Nil;
End;

{--- The temporary project in the host -----------------------------------------}

Function KsFocusedProject(Dummy : Integer) : String;
Var
    Project : IProject;
    Path    : String;
Begin
    Path := '';
    KsBeforeFirst('IWorkspace.DM_FocusedProject');
    Project := GetWorkspace.DM_FocusedProject;
    If Project <> Nil Then Path := Project.DM_ProjectFullPath;
    Result := Path;
End;

// Returns the path of the document in front; empty when the host names none. The
// project alone then decides.
Function KsFocusedDocument(Dummy : Integer) : String;
Var
    Document : IDocument;
    Path     : String;
Begin
    Path := '';
    KsBeforeFirst('IWorkspace.DM_FocusedDocument');
    Document := GetWorkspace.DM_FocusedDocument;
    If Document <> Nil Then KsBeforeFirst('IDocument.DM_FullPath');
    If Document <> Nil Then Path := Document.DM_FullPath;
    Result := Path;
End;

Function KsJobIsFocused(Dummy : Integer) : Boolean;
Var
    Focused  : Boolean;
    Document : String;
Begin
    Focused := KsSamePath(KsFocusedProject(0), KsBridgeFile('Bridge.PrjPcb'));
    If Focused Then
    Begin
        Document := KsFocusedDocument(0);
        Focused := (Document = '') Or KsSamePath(Document, KsBridgeFile('Bridge.OutJob'));
    End;
    Result := Focused;
End;

// Returns the path of the board in front; empty when there is none.
Function KsFrontPath(Dummy : Integer) : String;
Var
    Board : IPCB_Board;
    Path  : String;
Begin
    Path := '';
    Board := PCBServer.GetCurrentPCBBoard;
    If Board <> Nil Then Path := Board.FileName;
    Result := Path;
End;

// Shows a document, and opens the output job first. The document is searched each time,
// since it may have been closed meanwhile. Returns False when there is none.
Function KsShow(Path : String) : Boolean;
Var
    Document : IServerDocument;
    There    : Boolean;
Begin
    Document := Client.GetDocumentByPath(Path);
    If (Document = Nil) And KsSamePath(Path, KsBridgeFile('Bridge.OutJob')) And FileExists(Path) Then
    Begin
        KsBeforeLongCall('Client.OpenDocument');
        Document := Client.OpenDocument('OUTPUTJOB', Path);
    End;
    There := Document <> Nil;
    If There Then
    Begin
        KsBeforeLongCall('Client.ShowDocument');
        Client.ShowDocument(Document);
    End;
    Result := There;
End;

Function KsIsInFront(Path : String) : Boolean;
Var
    InFront : Boolean;
Begin
    If KsSamePath(Path, KsBridgeFile('Bridge.OutJob')) Then InFront := KsJobIsFocused(0)
    Else InFront := KsSamePath(KsFrontPath(0), Path);
    Result := InFront;
End;

// Shows the output job or the user's board, and waits until it has the focus. Several
// processes of the host act on the focus and ignore their parameters: this is called
// directly before each of them. After the last poll no message is processed, so the
// user cannot change the focus.
Function KsBringToFront(Path : String) : Boolean;
Var
    Looks   : Integer;
    Shown   : Boolean;
    InFront : Boolean;
    Ends    : Boolean;
Begin
    Looks := 0;
    Shown := True;
    InFront := False;
    Repeat
        Ends := KsQuits(0);
        If (Looks Mod KsLooksPerSecond = 0) And (Not Ends) Then Shown := KsShow(Path);
        KsPump(0);
        Sleep(KsPause);
        Looks := Looks + 1;
        If Not Ends Then Ends := KsQuits(0) Or (Not Shown);
        If Not Ends Then InFront := KsIsInFront(Path);
    Until InFront Or Ends Or (Looks >= KsFocusLimit * KsLooksPerSecond);
    Result := InFront;
End;

Function KsFocusJob(Dummy : Integer) : Boolean;
Var
    Focused : Boolean;
Begin
    Focused := KsBringToFront(KsBridgeFile('Bridge.OutJob'));
    Result := Focused;
End;

Function KsBridgeIndex(Dummy : Integer) : Integer;
Var
    I     : Integer;
    Index : Integer;
Begin
    Index := -1;
    For I := 0 To KsProjectCount(0) - 1 Do
        If KsSamePath(KsProjectPath(I), KsBridgeFile('Bridge.PrjPcb')) Then Index := I;
    Result := Index;
End;

// Marks a document of the temporary folder as unmodified, so that the host does not
// offer to save it.
Procedure KsForgetChanges(Path : String);
Var
    Document : IServerDocument;
Begin
    If KsIsInside(Path, KsTempRoot) Then
    Begin
        Document := Client.GetDocumentByPath(Path);
        If Document <> Nil Then
        Begin
            KsBeforeCall('IServerDocument.SetModified');
            Document.SetModified(False);
        End;
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
    KsForgetChanges(KsBridgeFile('Bridge.PcbDoc'));
    If KsBridgeIndex(0) >= 0 Then
    Begin
        Project := GetWorkspace.DM_Projects(KsBridgeIndex(0));
        KsBeforeFirst('IProject.DM_LogicalDocumentCount');
        For I := 0 To Project.DM_LogicalDocumentCount - 1 Do
        Begin
            KsBeforeFirst('IProject.DM_LogicalDocuments');
            Member := Project.DM_LogicalDocuments(I);
            If Member <> Nil Then KsBeforeFirst('IDocument.DM_FullPath');
            If Member <> Nil Then KsForgetChanges(Member.DM_FullPath);
        End;
    End;
End;

Procedure KsCloseFocused(ObjectKind : String);
Begin
    If KsFocusJob(0) Then
    Begin
        KsForgetBridgeChanges(0);
        If KsJobIsFocused(0) Then
        Begin
            KsBeforeLongCall('WorkspaceManager:CloseObject ' + ObjectKind);
            ResetParameters;
            AddStringParameter('ObjectKind', ObjectKind);
            RunProcess('WorkspaceManager:CloseObject');
        End;
    End;
End;

// Tries one closing action. If it fails, the others are still carried out.
Procedure KsTryToClose(ObjectKind : String);
Begin
    Try
        If Not KsQuits(0) Then
            If KsBridgeIndex(0) >= 0 Then KsCloseFocused(ObjectKind);
    Except
        KsMarkAge := KsMarkLooks;
    End;
End;

Procedure KsCloseStray(Path : String);
Var
    Document : IServerDocument;
Begin
    Try
        If KsIsInside(Path, KsTempRoot) Then
        Begin
            Document := Client.GetDocumentByPath(Path);
            If Document <> Nil Then
            Begin
                KsForgetChanges(Path);
                KsBeforeLongCall('Client.CloseDocument');
                Client.CloseDocument(Document);
            End;
        End;
    Except
        KsMarkAge := KsMarkLooks;
    End;
End;

// Returns whether a file of the temporary folder is still loaded. Every copy of a board
// is Bridge.PcbDoc: one that stays loaded would be exported again under the name of the
// next board.
Function KsIsLoaded(Path : String) : Boolean;
Var
    Loaded : Boolean;
Begin
    KsBeforeCall('Client.IsDocumentOpen');
    Loaded := Client.IsDocumentOpen(Path);
    If Not Loaded Then Loaded := Client.GetDocumentByPath(Path) <> Nil;
    Result := Loaded;
End;

Procedure KsListTemporaryFiles(Files : TStringList);
Var
    I : Integer;
Begin
    Files.Add(KsBridgeFile('Bridge.OutJob'));
    Files.Add(KsBridgeFile('Bridge.PcbDoc'));
    For I := 0 To KsSources.Count - 1 Do
        Files.Add(KsBridgeFile(ExtractFileName(KsSources.Strings[I])));
End;

Function KsNothingIsLoaded(Dummy : Integer) : Boolean;
Var
    Files   : TStringList;
    I       : Integer;
    Nothing : Boolean;
Begin
    Nothing := KsBridgeIndex(0) < 0;
    Files := TStringList.Create;
    Try
        KsListTemporaryFiles(Files);
        For I := 0 To Files.Count - 1 Do
        Begin
            If KsIsLoaded(Files.Strings[I]) Then KsCloseStray(Files.Strings[I]);
            If KsIsLoaded(Files.Strings[I]) Then Nothing := False;
        End;
    Finally
        Files.Free;
    End;
    Result := Nothing;
End;

Function KsCloseBridge(Dummy : Integer) : Boolean;
Var
    Closed : Boolean;
Begin
    KsTryToClose('FocusedProjectAndDocuments');
    KsTryToClose('FocusedProjectDocuments');
    KsTryToClose('FocusedProject');
    Closed := False;
    Try
        If Not KsQuits(0) Then Closed := KsNothingIsLoaded(0);
    Except
        Closed := False;
    End;
    Result := Closed;
End;

{--- Step 1: a copy of the board -----------------------------------------------}

// Returns the first path that changes when it is written to a file and read back,
// because the host's code page lacks one of its characters.
Function KsFirstLost(FileName : String; List : TStringList) : String;
Var
    Written : TStringList;
    I       : Integer;
    Lost    : String;
Begin
    Lost := '';
    Written := TStringList.Create;
    Try
        KsRead(FileName, Written);
        For I := 0 To List.Count - 1 Do
        Begin
            If I >= Written.Count Then Lost := List.Strings[I]
            Else If Written.Strings[I] <> List.Strings[I] Then Lost := List.Strings[I];
        End;
    Finally
        Written.Free;
    End;
    Result := Lost;
End;

Procedure KsWriteSources(Dummy : Integer);
Var
    Lost : String;
Begin
    If Not KsWriteFresh(KsExchangeFile('dependencies'), KsSources) Then
        KsProblem := 'No file could be written in ' + KsExchange + '. Is the disk full?'
    Else
    Begin
        Lost := KsFirstLost(KsExchangeFile('dependencies'), KsSources);
        If Lost <> '' Then
            KsProblem := 'This path holds characters that Windows cannot hand to the export.'
                + ' Rename the file or folder:' + KsBreak + Lost;
    End;
End;

// Writes the used-layer manifest.
Procedure KsWriteManifest(Dummy : Integer);
Var
    Manifest : TStringList;
    I        : Integer;
Begin
    Manifest := TStringList.Create;
    Try
        For I := 0 To KsPlotKeys.Count - 1 Do Manifest.Add('PlotKey=' + KsPlotKeys.Strings[I]);
        For I := 0 To KsLayerNames.Count - 1 Do Manifest.Add('LayerName=' + KsLayerNames.Strings[I]);
        If Not KsWriteFresh(KsExchangeFile('layers'), Manifest) Then
            KsProblem := 'No file could be written in ' + KsExchange + '. Is the disk full?'
        Else If KsFirstLost(KsExchangeFile('layers'), Manifest) <> '' Then
            KsProblem := 'The list of layers in ' + KsExchange + ' is incomplete. Is the disk full?';
    Finally
        Manifest.Free;
    End;
End;

// Keeps the mark after the end of the run, and with it the lists that a preparation
// reads: one that has not reported its end may still write.
Procedure KsKeepMark(State : String; EndFile : String);
Begin
    KsMarkIsKept := True;
    KsKeptState := State;
    KsMarkUntil := EndFile;
End;

Procedure KsNoteReady(Dummy : Integer);
Begin
    KsReady := KsFirstLine(KsBridgeFile('ready.txt'));
    KsReadyAge := FileAge(KsBridgeFile('ready.txt'));
End;

Procedure KsRunPreparation(Dummy : Integer);
Var
    Answer : String;
Begin
    KsLogLines := KsCountLog(0);
    If KsRun('--prepare ' + KsQuoted(KsBoardPath) + ' ' + KsQuoted(KsExchangeFile('dependencies'))
        + ' ' + KsQuoted(KsExchangeFile('layers')) + ' ' + KsQuoted(KsExchangeFile('status'))) Then
    Begin
        Answer := KsAwait(KsExchangeFile('status'), KsPrepareLimit, KsCancelLimit);
        KsNoteReady(0);
        If Answer = '' Then KsKeepMark('cancelled', KsExchangeFile('status'));
        If (Answer = '') And (Not KsMustEnd(0)) Then
            KsProblem := 'Kestrune.exe gave no answer in time. A very large panel, a slow network'
                + ' folder or a virus scanner may be the reason.'
        Else If (Answer <> 'OK') And (Not KsMustEnd(0)) Then
            KsProblem := KsWhyPrepareFailed(KsEndLine(KsLogLines, False));
    End;
End;

Procedure KsPrepareCopy(Dummy : Integer);
Begin
    KsShowStep(1, 'preparing', 'preparing a copy of the board');
    If Not KsMustEnd(0) Then
        If Not KsCloseBridge(0) Then
            KsProblem := 'The temporary project of an earlier export is still open. Close the project Bridge'
                + ' and its documents without saving and try again.';
    If Not KsMustEnd(0) Then
    Begin
        KsBringToFront(KsBoardPath);
        KsCollectBoards(0);
        If KsProblem = '' Then
            If Not KsNothingIsLoaded(0) Then
                KsProblem := 'A document of the temporary project is still open. Close the documents in '
                    + KsTempRoot + ' without saving and try again.';
        If KsProblem = '' Then KsWriteSources(0);
        If KsProblem = '' Then KsWriteManifest(0);
        If Not KsMustEnd(0) Then KsRunPreparation(0);
    End;
End;

{--- Step 2: the temporary project in the host ---------------------------------}

Procedure KsCompileBridge(Dummy : Integer);
Var
    Project      : IProject;
    NeedsCompile : Boolean;
Begin
    If KsBridgeIndex(0) >= 0 Then
    Begin
        Project := GetWorkspace.DM_Projects(KsBridgeIndex(0));
        KsBeforeCall('IProject.DM_NeedsCompile');
        NeedsCompile := Project.DM_NeedsCompile;
        KsBeforeLongCall('IProject.DM_Compile');
        If NeedsCompile Then Project.DM_Compile;
    End;
End;

Procedure KsOpenBridge(Dummy : Integer);
Begin
    KsShowStep(2, 'opening', 'opening the temporary project');
    If Not KsMustEnd(0) Then
    Begin
        KsBeforeLongCall('IWorkspace.DM_OpenProject');
        GetWorkspace.DM_OpenProject(KsBridgeFile('Bridge.PrjPcb'), True);
        If KsFocusJob(0) Then KsCompileBridge(0)
        Else If Not KsMustEnd(0) Then
            KsProblem := 'Altium Designer did not open the temporary project '
                + KsBridgeFile('Bridge.PrjPcb') + '.';
    End;
End;

{--- Step 3: the host writes the archive ---------------------------------------}

Procedure KsGenerate(Dummy : Integer);
Begin
    KestruneWaitForm.NoteLabel.Caption := 'This may take minutes. The clock stands still meanwhile.';
    KsShowStep(3, 'generating', 'Altium Designer writes the ODB++ archive');
    If Not KsMustEnd(0) Then
    Begin
        If KsFocusJob(0) And (Not KsCancelled(0)) Then
        Begin
            KsMark('generating', 'WorkspaceManager:GenerateReport', KsGenerateLimit);
            ResetParameters;
            AddStringParameter('Action', 'Run');
            AddStringParameter('ObjectKind', 'OutputBatch');
            AddStringParameter('OutputMedium', KsMedium);
            AddStringParameter('DisableDialog', 'True');
            RunProcess('WorkspaceManager:GenerateReport');
        End
        Else If Not KsMustEnd(0) Then
            KsProblem := 'The temporary project did not stay in front. Do not click into Altium Designer'
                + ' while the window says that it opens the project or writes the archive.';
        KsMark('generated', '', KsWaitLimit);
    End;
    KestruneWaitForm.NoteLabel.Caption := ' ';
End;

{--- Step 4: the archive is complete -------------------------------------------}

// Returns whether the host has begun to write: it creates a folder first, within some
// seconds.
Function KsSomethingIsWritten(Dummy : Integer) : Boolean;
Var
    Looks   : Integer;
    Written : Boolean;
Begin
    Looks := 0;
    Repeat
        Written := DirectoryExists(KsOutputFolder(0)) Or FileExists(KsArchive(0));
        If Not Written Then KsRest(0);
        Looks := Looks + 1;
    Until Written Or (Looks > KsSilenceLimit * KsLooksPerSecond) Or KsMustEnd(0);
    Result := Written;
End;

// Returns a text that changes whenever an output file is created or grows.
Function KsOutputState(Dummy : Integer) : String;
Var
    Files : TStringList;
    I     : Integer;
    State : String;
Begin
    Files := TStringList.Create;
    Try
        FindFiles(KsOutputFolder(0), '*.*', faAnyFile, True, Files);
        State := IntToStr(Files.Count);
        For I := 0 To Files.Count - 1 Do
            If FileExists(Files.Strings[I]) Then
                State := State + ' ' + IntToStr(FileAge(Files.Strings[I]));
        If FileExists(KsArchive(0)) Then State := State + ' ' + IntToStr(FileAge(KsArchive(0)));
    Finally
        Files.Free;
    End;
    Result := State;
End;

// Waits for the archive once. Each wait has its own result file, since an earlier wait
// may end late.
Function KsWaitOnce(Number : Integer) : String;
Var
    ResultFile : String;
    Answer     : String;
Begin
    Answer := '';
    ResultFile := KsExchangeFile('result' + IntToStr(Number));
    If KsRun('--wait-native ' + KsQuoted(KsArchive(0)) + ' '
        + KsQuoted(KsOutputFolder(0) + '\Status Report.Txt') + ' ' + KsQuoted(ResultFile)) Then
        Answer := KsAwait(ResultFile, KsAnswerLimit, 0);
    Result := Answer;
End;

// Waits for the archive, again as long as the host still writes. Returns whether it is
// complete.
Function KsWaitForArchive(Dummy : Integer) : Boolean;
Var
    Answer : String;
    Before : String;
    Waits  : Integer;
    Grows  : Boolean;
    Ready  : Boolean;
Begin
    Waits := 0;
    Repeat
        Waits := Waits + 1;
        Before := KsOutputState(0);
        Answer := KsWaitOnce(Waits);
        Grows := (Answer <> 'OK') And (KsOutputState(0) <> Before);
        If Grows Then KestruneWaitForm.NoteLabel.Caption := 'Altium Designer is still writing.';
    Until (Not Grows) Or (Waits >= KsArchiveWaits) Or KsMustEnd(0);
    Ready := Answer = 'OK';
    Result := Ready;
End;

Procedure KsAwaitArchive(Dummy : Integer);
Var
    Ready : Boolean;
Begin
    KsShowStep(4, 'waiting', 'waiting until the archive is complete');
    If Not KsMustEnd(0) Then
    Begin
        Ready := False;
        If KsSomethingIsWritten(0) Then
            Ready := KsWaitForArchive(0) And FileExists(KsArchive(0));
        If (Not Ready) And (Not KsMustEnd(0)) Then
            KsProblem := 'Altium Designer wrote no complete ODB++ archive. Look into its Messages panel'
                + ' for the reason: a missing licence for outputs or an error in the board.';
    End;
End;

{--- Step 5: the archive holds what the board needs ----------------------------}

// What Kestrune.exe found in the archive is a list of lines: LAYER=, and fields with
// bars between them. Types decide; names only help, for users choose them.

// Returns a field of a row; the first one has number 1.
Function KsField(Row : String; Number : Integer) : String;
Var
    I    : Integer;
    Rest : String;
    Text : String;
Begin
    Rest := Row + '|';
    For I := 2 To Number Do
        Rest := Copy(Rest, Pos('|', Rest) + 1, Length(Rest));
    Text := Copy(Rest, 1, Pos('|', Rest) - 1);
    Result := Text;
End;

// Returns whether a row has one of some types. A drawing is a row whose type is not in
// KsOtherTypes.
Function KsIsOfType(Row : String; Types : String) : Boolean;
Var
    Mark : String;
    Fits : Boolean;
Begin
    Mark := ' ' + UpperCase(KsField(Row, 1)) + ' ';
    If Types = KsDrawings Then Fits := Pos(Mark, ' ' + KsOtherTypes + ' ') = 0
    Else Fits := Pos(Mark, ' ' + Types + ' ') > 0;
    Result := Fits;
End;

// Returns whether the archive has a folder for the row, and, when Filled is set, objects
// in it.
Function KsIsThere(Row : String; Filled : Boolean) : Boolean;
Var
    There : Boolean;
Begin
    There := KsField(Row, 5) <> 'absent';
    If Filled And (KsField(Row, 6) = 'none') Then There := False;
    Result := There;
End;

Function KsCountFindings(Key : String) : Integer;
Var
    I     : Integer;
    Count : Integer;
Begin
    Count := 0;
    For I := 0 To KsFindings.Count - 1 Do
        If Pos(Key, KsFindings.Strings[I]) = 1 Then Count := Count + 1;
    Result := Count;
End;

// Returns whether a word of a name begins with a text: TOP is in M1_TOP, but not in
// STOPMASK.
Function KsHasWord(Row : String; Word : String) : Boolean;
Var
    Name : String;
    Has  : Boolean;
Begin
    Name := UpperCase(KsField(Row, 2));
    Has := (Pos(Word, Name) = 1) Or (Pos('_' + Word, Name) > 0) Or (Pos('-' + Word, Name) > 0)
        Or (Pos(' ' + Word, Name) > 0) Or (Pos('.' + Word, Name) > 0);
    Result := Has;
End;

// Returns whether a row can be one of a side: its name does not name the other side
// alone.
Function KsFitsSide(Row : String; Side : String) : Boolean;
Var
    Fits : Boolean;
Begin
    Fits := False;
    If Side = 'top' Then Fits := KsHasWord(Row, 'TOP') Or (Not KsHasWord(Row, 'BOT'));
    If Side = 'bottom' Then Fits := KsHasWord(Row, 'BOT') Or (Not KsHasWord(Row, 'TOP'));
    Result := Fits;
End;

Function KsSaysUnplated(Row : String) : Boolean;
Var
    Says : Boolean;
Begin
    Says := KsHasWord(Row, 'NON-PLATED') Or KsHasWord(Row, 'NON_PLATED')
        Or KsHasWord(Row, 'NONPLATED') Or KsHasWord(Row, 'UNPLATED') Or KsHasWord(Row, 'NPTH');
    Result := Says;
End;

// Returns the kind of the holes in a row of drills by its name; 'any' when the name has
// no kind.
Function KsKindOfDrill(Row : String) : String;
Var
    Kind : String;
Begin
    Kind := 'any';
    If KsSaysUnplated(Row) Then Kind := 'unplated'
    Else If KsHasWord(Row, 'PLATED') Or KsHasWord(Row, 'PTH') Then Kind := 'plated';
    Result := Kind;
End;

// Returns the kind of a drawing by its name. Users name the mechanical layers, and may
// have renamed the other ones too.
Function KsKindOfDrawing(Row : String) : String;
Var
    Kind : String;
Begin
    Kind := 'other';
    If KsHasWord(Row, 'KEEP') Then Kind := 'keep-out layer'
    Else If KsHasWord(Row, 'DRILL') Then
    Begin
        Kind := 'drill guide';
        If KsHasWord(Row, 'DRAWING') Then Kind := 'drill drawing';
    End;
    Result := Kind;
End;

// Returns the number of rows of some types, with objects when Filled is set, and of a
// kind: a side, a kind of drill or a kind of drawing; empty for all.
Function KsCountRows(Types : String; Kind : String; Filled : Boolean) : Integer;
Var
    I     : Integer;
    Row   : String;
    Fits  : Boolean;
    Count : Integer;
Begin
    Count := 0;
    For I := 0 To KsRows.Count - 1 Do
    Begin
        Row := KsRows.Strings[I];
        Fits := (Kind = '') Or KsFitsSide(Row, Kind) Or (KsKindOfDrill(Row) = Kind)
            Or (KsKindOfDrawing(Row) = Kind);
        If Fits And KsIsOfType(Row, Types) And KsIsThere(Row, Filled) Then Count := Count + 1;
    End;
    Result := Count;
End;

Procedure KsCheckCopper(Dummy : Integer);
Var
    Needed : Integer;
    Found  : Integer;
Begin
    Needed := KsCountFindings('Copper=');
    // A number that is no known layer may be one that is counted already.
    If KsCountFindings('Copper=number') > 0 Then Needed := 0;
    Found := KsCountRows('SIGNAL POWER_GROUND MIXED', '', False);
    If Found < Needed Then
        KsGaps.Add('The board has ' + IntToStr(Needed) + ' copper layers, but the archive holds '
            + IntToStr(Found) + '.');
End;

Function KsHolesText(Dummy : Integer) : String;
Var
    Text : String;
Begin
    Text := 'The board has ' + IntToStr(KsHoles) + ' holes';
    If KsHoles = 1 Then Text := 'The board has 1 hole';
    // In a panel each embedded board is counted once, however often it is placed.
    If KsChildren.Count > 0 Then Text := 'The boards of the panel have holes';
    Result := Text;
End;

Procedure KsCheckDrills(Dummy : Integer);
Begin
    If KsHoles > 0 Then
    Begin
        If KsCountRows('DRILL', '', False) = 0 Then
            KsGaps.Add(KsHolesText(0) + ', but the archive holds no drill layer.')
        Else If KsCountRows('DRILL', '', True) = 0 Then
            KsGaps.Add(KsHolesText(0) + ', but the drill layers of the archive are empty.')
        Else If KsCountRows('DRILL', 'any', True) = 0 Then
        Begin
            If (KsCountFindings('Drill=plated') > 0) And (KsCountRows('DRILL', 'plated', True) = 0) Then
                KsGaps.Add('The board has plated holes, but the archive holds no drill layer for them.');
            If (KsCountFindings('Drill=unplated') > 0) And (KsCountRows('DRILL', 'unplated', True) = 0) Then
                KsGaps.Add('The board has holes without plating, but the archive holds no drill layer'
                    + ' for them.');
        End;
    End;
End;

// Checks a layer of one side. When objects are on it, it must have some in the archive;
// one that only pads need may be empty, since the host may make no openings for them.
Procedure KsCheckSide(RowType : String; Words : String; Side : String; Name : String; HasPads : Boolean);
Var
    Drawn : Boolean;
Begin
    Drawn := KsFindings.IndexOf('Drawn=' + Name) >= 0;
    If (Drawn Or HasPads) And (KsCountRows(RowType, Side, False) = 0) Then
        KsGaps.Add('The board has a ' + Words + ' on the ' + Side + ' side, but the archive holds none.')
    Else If Drawn And (KsCountRows(RowType, Side, True) = 0) Then
        KsGaps.Add('The ' + Words + ' on the ' + Side + ' side is empty in the archive, but not on the board.');
End;

// Checks a layer of both sides, which cannot share one row.
Procedure KsCheckSides(RowType : String; Words : String; Name : String; Top : Boolean; Bottom : Boolean);
Var
    Gaps   : Integer;
    Needed : Integer;
Begin
    Gaps := KsGaps.Count;
    KsCheckSide(RowType, Words, 'top', 'Top' + Name, Top);
    KsCheckSide(RowType, Words, 'bottom', 'Bottom' + Name, Bottom);
    Needed := 0;
    If Top Or (KsFindings.IndexOf('Drawn=Top' + Name) >= 0) Then Needed := Needed + 1;
    If Bottom Or (KsFindings.IndexOf('Drawn=Bottom' + Name) >= 0) Then Needed := Needed + 1;
    If (KsGaps.Count = Gaps) And (KsCountRows(RowType, '', False) < Needed) Then
        KsGaps.Add('The board has a ' + Words + ' on both sides, but the archive holds only one.');
End;

// Checks the keep-out layer or the drill drawing. Without a row of that name, a row that
// no mechanical layer needs is counted as it; Spare is the number of such rows. Returns
// how many of them are left.
Function KsCheckDrawing(Name : String; Kind : String; Spare : Integer) : Integer;
Var
    Left : Integer;
Begin
    Left := Spare;
    If KsFindings.IndexOf('Drawn=' + Name) >= 0 Then
    Begin
        If KsCountRows(KsDrawings, Kind, False) = 0 Then
        Begin
            Left := Left - 1;
            If Left < 0 Then
                KsGaps.Add('The board has a ' + Kind + ', but the archive holds none.');
        End
        Else If KsCountRows(KsDrawings, Kind, True) = 0 Then
            KsGaps.Add('The ' + Kind + ' is empty in the archive, but not on the board.');
    End;
    Result := Left;
End;

Procedure KsCheckDrawings(Known : Boolean);
Var
    Needed : Integer;
    Found  : Integer;
    Spare  : Integer;
Begin
    Needed := KsCountFindings('Mechanical=') - KsTooHigh.Count;
    Found := KsCountRows(KsDrawings, 'other', False);
    Spare := Found - Needed;
    // Older hosts do not report which mechanical layers are used: any row may be spare.
    If (KsHost < 17) Or (Not Known) Then Spare := KsLastMechanical
    Else If Spare < 0 Then
    Begin
        KsGaps.Add('The board uses ' + IntToStr(Needed) + ' mechanical layers, but the archive holds '
            + IntToStr(Found) + '.');
        Spare := 0;
    End;
    Spare := KsCheckDrawing('KeepOut', 'keep-out layer', Spare);
    KsCheckDrawing('DrillDrawing', 'drill drawing', Spare);
End;

// Compares the rows with the layers of all boards that are loaded. With a mirrored board
// no side is compared.
Procedure KsCompare(Dummy : Integer);
Var
    Known : Boolean;
Begin
    Known := KsCountFindings('Unknown=') = 0;
    KsCheckCopper(0);
    KsCheckDrills(0);
    If KsCountFindings('Unknown=' + KsMirrored) = 0 Then
    Begin
        KsCheckSides('SOLDER_MASK', 'solder mask', 'Solder', Known And KsPads, Known And KsPads);
        KsCheckSides('SOLDER_PASTE', 'paste mask', 'Paste', Known And KsTopPads, Known And KsBottomPads);
        KsCheckSides('SILK_SCREEN', 'silkscreen', 'Overlay', False, False);
    End;
    KsCheckDrawings(Known);
End;

// Reads the rows of a list. Returns why there are none; empty when they were read.
Function KsReadRows(FileName : String) : String;
Var
    Lines  : TStringList;
    Reason : String;
    I      : Integer;
Begin
    Reason := 'Kestrune.exe gave no answer.';
    Lines := TStringList.Create;
    Try
        If KsRead(FileName, Lines) And (Lines.Count > 1) Then
        Begin
            Reason := KsValue(Lines, 'ERROR=');
            If (Lines.Strings[0] <> 'VERSION=1') Or (Lines.Strings[Lines.Count - 1] <> 'END') Then
                Reason := 'The list of its layers could not be read.';
            For I := 0 To Lines.Count - 1 Do
                If Pos('LAYER=', Lines.Strings[I]) = 1 Then
                    KsRows.Add(Copy(Lines.Strings[I], 7, Length(Lines.Strings[I])));
        End;
    Finally
        Lines.Free;
    End;
    Result := Reason;
End;

// Returns why the archive cannot be checked; empty when its rows were read.
Function KsInspect(Dummy : Integer) : String;
Var
    ListFile : String;
    Reason   : String;
Begin
    ListFile := KsExchangeFile('list');
    Reason := 'Kestrune.exe could not be started.';
    If KsRun('--inspect ' + KsQuoted(KsArchive(0)) + ' ' + KsQuoted(ListFile)) Then
    Begin
        KsAwait(ListFile, KsCheckLimit, 0);
        Reason := KsReadRows(ListFile);
    End
    Else
        KsProblem := '';
    Result := Reason;
End;

Procedure KsAskAboutGaps(Dummy : Integer);
Var
    Delivers : Boolean;
Begin
    KsMark('asking', 'ConfirmNoYes', KsWaitLimit);
    Delivers := ConfirmNoYes('The archive seems to be incomplete.' + KsBreak + KsBreak + KsGaps.Text
        + KsBreak + 'Deliver it all the same? If not, it stays here until the next export:' + KsBreak
        + KsArchive(0));
    If Not Delivers Then
    Begin
        KsRefused := True;
        KsProblem := 'The archive seems to be incomplete.';
    End;
End;

// Checks the archive. A check that fails does not stop the export.
Procedure KsCheckArchive(Dummy : Integer);
Var
    Reason : String;
Begin
    KsShowStep(5, 'checking', 'checking the archive');
    If Not KsMustEnd(0) Then
    Begin
        Reason := KsInspect(0);
        If Not KsMustEnd(0) Then
        Begin
            If Reason <> '' Then
                KsAddNotice('The archive was not checked for missing layers: ' + Reason)
            Else
            Begin
                KsCompare(0);
                If KsGaps.Count > 0 Then KsAskAboutGaps(0);
            End;
        End;
    End;
End;

{--- Step 6: delivery ----------------------------------------------------------}

// Returns whether the temporary folder is still as the preparation of this run left it.
// Another board's name in it, or a younger file, means that another run prepared
// meanwhile. The name is written in the code page, where several names may become one.
Function KsFolderIsOurs(Dummy : Integer) : Boolean;
Var
    Line : String;
    Ours : Boolean;
Begin
    Line := KsFirstLine(KsBridgeFile('ready.txt'));
    Ours := (Line = KsReady) And KsSamePath(KsAsciiPart(Line), KsAsciiPart(KsBoardPath));
    If Ours Then Ours := FileAge(KsBridgeFile('ready.txt')) = KsReadyAge;
    Result := Ours;
End;

Procedure KsAwaitDelivery(Dummy : Integer);
Var
    Looks : Integer;
    Ended : Boolean;
Begin
    Looks := 0;
    Ended := False;
    While (Not Ended) And (Looks <= KsDeliveryLimit * KsLooksPerSecond) And (Not KsMustEnd(0)) Do
    Begin
        KsRest(0);
        // Not at each poll: while the log is read, no program can write into it.
        If Looks Mod KsLooksPerSecond = 0 Then Ended := KsEndLine(KsLogLines, True) <> '';
        Looks := Looks + 1;
    End;
    If Not Ended Then KsKeepMark('handed over', '');
End;

Procedure KsDeliver(Dummy : Integer);
Var
    Arguments : String;
Begin
    If Not KsFolderIsOurs(0) Then
        KsProblem := 'Another board was prepared for export meanwhile, so nothing was delivered. Export one'
            + ' board after the other.'
    Else
    Begin
        KsLogLines := KsCountLog(0);
        Arguments := '--finalize-auto ' + KsQuoted(KsBoardPath);
        If KsClearance > 0 Then Arguments := Arguments + ' ' + IntToStr(KsClearance);
        If KsRun(Arguments) Then
        Begin
            KsMark('delivering', '', KsDeliveryLimit);
            KsAwaitDelivery(0);
        End;
    End;
End;

{--- One export ----------------------------------------------------------------}

// Carries out the steps; each one checks first whether the export must end.
Procedure KsMakeArchive(Dummy : Integer);
Begin
    KsCentreWindow(0);
    If Not KsMustEnd(0) Then KsPrepareCopy(0);
    If Not KsMustEnd(0) Then KsOpenBridge(0);
    If Not KsMustEnd(0) Then KsGenerate(0);
    If Not KsMustEnd(0) Then KsAwaitArchive(0);
    If Not KsMustEnd(0) Then KsCheckArchive(0);
    If Not KsMustEnd(0) Then KsShowStep(6, 'closing', 'delivering the archive');
End;

// Closes everything of the export and shows the board again.
Procedure KsCloseAndReturn(Dummy : Integer);
Begin
    If Not KsCloseBridge(0) Then
        KsAddNotice('The temporary project Bridge could not be closed. Close it without saving.');
    Try
        KsBringToFront(KsBoardPath);
    Except
        KsMarkAge := KsMarkLooks;
    End;
End;

// Ends the export. Nothing is changed in a host that is closing.
Procedure KsEndExport(Dummy : Integer);
Var
    Complete : Boolean;
Begin
    If Not KsQuits(0) Then
    Begin
        Complete := (KsProblem = '') And (Not KsCancelled(0)) And (Not KsMarkLost);
        KsCloseAndReturn(0);
        If Complete And (Not KsMustEnd(0)) Then KsDeliver(0);
        If KsMarkLost And (KsProblem = '') Then
            KsProblem := 'Another export took over the temporary folder, because this one had given no'
                + ' sign of life for too long.';
        KestruneWaitForm.StepBar.Position := KsSteps;
        KsBeforeCall('KestruneWaitForm.Hide');
        KestruneWaitForm.Hide;
    End;
End;

Procedure KsReport(Dummy : Integer);
Begin
    If Not KsQuits(0) Then
    Begin
        If KsNotice <> '' Then ShowWarning(KsNotice);
        If (KsProblem <> '') And (Not KsRefused) Then
            ShowError('The board was not exported.' + KsBreak + KsBreak + KsProblem
                + KsBreak + KsBreak + 'Details: ' + KsLogPath(0));
    End;
End;

Procedure KsExportFile(Dummy : Integer);
Begin
    KsOpenWindow(0);
    Try
        Try
            KsMakeArchive(0);
        Except
            KsProblem := 'The export stopped in the middle of: ' + KsStepText + '.';
        End;
    Finally
        KsEndExport(0);
    End;
End;

{--- Before the export ---------------------------------------------------------}

Function KsAskToSave(Document : IServerDocument) : Integer;
Var
    Question : String;
    Answer   : Integer;
Begin
    KsBeforeCall('IServerDocument.Modified');
    If Document.Modified Then
        Question := 'The board has changes that are not saved. Save it before the export?'
    Else
        Question := 'Save the board before the export?';
    Question := Question + KsBreak + KsBoardPath + KsBreak + KsBreak
        + 'Yes: save, then export.' + KsBreak
        + 'No: export the file as it was saved last.' + KsBreak
        + 'Cancel: do nothing.';
    KsBeforeLongCall('ConfirmNoYesCancel');
    Answer := ConfirmNoYesCancel(Question);
    Result := Answer;
End;

// Waits for the next two seconds: a file's age has steps of two seconds, so a second
// save within one step would look as if nothing was written.
Procedure KsLetAgePass(Dummy : Integer);
Begin
    KsBeforeLongCall('FileAge');
    If FileAge(KsBoardPath) = FileAge(KsMarkPath) Then Sleep(2100);
End;

// Saves, and reports when no file was written: the host may have found nothing to save,
// may not know of a change, or may not be allowed to write.
Function KsSave(Asked : Boolean) : Boolean;
Var
    Document : IServerDocument;
    Before  : Integer;
    Changed : Boolean;
    GoesOn  : Boolean;
    Text    : String;
Begin
    GoesOn := True;
    KsLetAgePass(0);
    Changed := False;
    Before := FileAge(KsBoardPath);
    // Searched again, since a question was open meanwhile.
    Document := Client.GetDocumentByPath(KsBoardPath);
    If Document <> Nil Then
    Begin
        KsBeforeCall('IServerDocument.Modified');
        Changed := Document.Modified;
        KsBeforeLongCall('IServerDocument.DoFileSave');
        Document.DoFileSave('');
        KsMark('starting', '', KsWaitLimit);
    End;
    If FileAge(KsBoardPath) = Before Then
    Begin
        Text := 'Altium Designer wrote no file: it found nothing to save, or the file is'
            + ' write-protected.';
        If Asked Or Changed Then
        Begin
            KsBeforeLongCall('ConfirmNoYes');
            GoesOn := ConfirmNoYes(Text + KsBreak + 'Export the file as it was saved last?');
        End
        Else
            KsAddNotice(Text + ' The file was exported as it was saved last.');
    End;
    Result := GoesOn;
End;

// Saves the board, which is exported from its file. Unless the settings decide, saving
// is offered each time, since the host does not always know that a board was changed.
Function KsSaveBoard(Document : IServerDocument) : Boolean;
Var
    Setting : String;
    Answer  : Integer;
    GoesOn  : Boolean;
Begin
    Setting := KsSaveSetting(0);
    Answer := mrNo;
    If Setting = 'always' Then Answer := mrYes;
    If Setting = 'ask' Then Answer := KsAskToSave(Document);
    GoesOn := (Answer = mrYes) Or (Answer = mrNo);
    If Answer = mrYes Then GoesOn := KsSave(Setting = 'ask');
    Result := GoesOn;
End;

// Returns why the board in KsBoardPath cannot be exported; empty when it can.
Function KsRefusalOfBoard(Dummy : Integer) : String;
Var
    Text : String;
Begin
    Text := '';
    KsBeforeCall('Client.GetDocumentByPath');
    If KsIsInside(KsBoardPath, KsTempRoot) Then
        Text := 'This is the temporary copy that Kestrune made of a board. Open the original board and'
            + ' export that one.'
    Else If UpperCase(ExtractFileExt(KsBoardPath)) = '.PCBLIB' Then
        Text := 'This is a library. Open a board and press the button there.'
    Else If (Not KsIsAbsolute(KsBoardPath)) Or (Not FileExists(KsBoardPath)) Then
        Text := 'This board has no file: it was never saved, or its folder is not connected. Save it'
            + ' under a name first, then press the button again.'
    Else If Client.GetDocumentByPath(KsBoardPath) = Nil Then
        Text := 'Altium Designer does not know the document of this board. Open it again and retry.'
    Else If KsMissingFile(0) <> '' Then
        Text := 'The installation of Kestrune is incomplete. This file is missing:' + KsBreak
            + KsMissingFile(0) + KsBreak + KsReinstall(0);
    Result := Text;
End;

// Reads the host's version, the active board and the installation. Returns why nothing
// can be exported; empty when nothing is missing.
Function KsRefusal(Dummy : Integer) : String;
Var
    Text : String;
Begin
    Text := '';
    KsBeforeCall('Client.GetProductVersion');
    KsVersion := Client.GetProductVersion;
    KsBeforeCall('GetBuildNumberPart');
    KsHost := GetBuildNumberPart(KsVersion, 0);
    KsBeforeCall('PCBServer.GetCurrentPCBBoard');
    If PCBServer <> Nil Then KsBoard := PCBServer.GetCurrentPCBBoard;
    If KsBoard = Nil Then
        Text := 'Open the board that you want to export and press the button again.'
    Else If Not KsLocateInstallation(0) Then
        Text := 'The folders of Kestrune could not be found. ' + KsReinstall(0)
    Else
    Begin
        KsBeforeCall('IPCB_Board.FileName');
        KsBoardPath := KsBoard.FileName;
        Text := KsRefusalOfBoard(0);
    End;
    KsBoard := Nil;
    Result := Text;
End;

// Exports under the mark. Reports first where an earlier run was stopped.
Procedure KsExportBoard(Dummy : Integer);
Var
    Document : IServerDocument;
Begin
    If KsNotice <> '' Then
    Begin
        ShowWarning(KsNotice);
        KsNotice := '';
    End;
    Document := Client.GetDocumentByPath(KsBoardPath);
    If Document = Nil Then KsProblem := 'The board was closed.'
    Else If KsSaveBoard(Document) Then KsExportFile(0);
End;

// Takes the mark, and removes it at the end, also after an error.
Procedure KsExportUnderMark(Dummy : Integer);
Begin
    Try
        KsTakeMark(0);
        If KsProblem = '' Then KsExportBoard(0);
    Finally
        If KsMarkIsKept Then KsMark(KsKeptState, '', KsWaitLimit)
        Else KsRemoveFiles(True);
    End;
    KsReport(0);
End;

Procedure KsExport(Dummy : Integer);
Var
    Refusal : String;
Begin
    KsTakeFirstMark(0);
    Refusal := KsRefusal(0);
    If Refusal = '' Then KsExportUnderMark(0)
    Else
    Begin
        KsDropFirstMark(KsMarkPath);
        KsMarkPath := '';
        ShowWarning(Refusal);
    End;
End;

Procedure KsForgetLastRun(Dummy : Integer);
Begin
    KsProblem := '';
    KsNotice := '';
    KsStepText := 'starting';
    KsStart := Now;
    KsStamp := '';
    KsExchange := '';
    KsRuntimeRoot := '';
    KsBoardPath := '';
    KsVersion := '';
    KsMarkPath := '';
    KsMarkUntil := '';
    KsMarkNumber := 0;
    KsMarkState := 'starting';
    KsMarkAge := 0;
    KsMarkIsCall := False;
    KsMarkLost := False;
    KsMarkIsKept := False;
    KsKeptState := '';
    KsLogLines := 0;
    KsReady := '';
    KsReadyAge := 0;
    KsClearance := 0;
    KsHoles := 0;
    KsRefused := False;
    KsBoard := Nil;
End;

Procedure KsRunWithLists(Dummy : Integer);
Begin
    KsForgetLastRun(0);
    KsChildren := TObjectList.Create;
    KsChildren.OwnsObjects := False;
    KsChildFolder := TStringList.Create;
    KsVisited := TStringList.Create;
    KsSources := TStringList.Create;
    KsNamed := TStringList.Create;
    KsMissing := TStringList.Create;
    KsUnsaved := TStringList.Create;
    KsAway := TStringList.Create;
    KsPlotKeys := TStringList.Create;
    KsLayerNames := TStringList.Create;
    KsTooHigh := TStringList.Create;
    KsFindings := TStringList.Create;
    KsRows := TStringList.Create;
    KsGaps := TStringList.Create;
    Try
        KsExport(0);
    Finally
        KsChildren.Free;
        KsChildFolder.Free;
        KsVisited.Free;
        KsSources.Free;
        KsNamed.Free;
        KsMissing.Free;
        KsUnsaved.Free;
        KsAway.Free;
        KsPlotKeys.Free;
        KsLayerNames.Free;
        KsTooHigh.Free;
        KsFindings.Free;
        KsRows.Free;
        KsGaps.Free;
    End;
End;

// Requests the end of the run in this interpreter, whose mark is missing. It may still
// be active, and a second run would overwrite its variables. If it was stopped by
// force, the next press starts.
Function KsAskToEnd(Dummy : Integer) : Boolean;
Var
    MayStart : Boolean;
Begin
    MayStart := KsMarkLost;
    If Not MayStart Then
    Begin
        KsMarkLost := True;
        ShowWarning('The file that the running export keeps was deleted, so that export ends now.'
            + ' Press the button again.');
    End;
    Result := MayStart;
End;

// Returns whether this press may start a run. If the variables are those of a run, its
// mark decides whether it is active (this press came while it waits) or was stopped by
// force. No variable may be changed before that.
Function KsMayStart(Dummy : Integer) : Boolean;
Var
    Lines    : TStringList;
    Text     : String;
    MayStart : Boolean;
Begin
    Text := '';
    MayStart := True;
    If KsExportRuns And (KsMarkPath <> '') Then
    Begin
        If Not FileExists(KsMarkPath) Then MayStart := KsAskToEnd(0);
        Lines := TStringList.Create;
        Try
            If KsReadMark(KsMarkPath, Lines) Then
                If KsStateOfMark(Lines) = 'running' Then Text := KsRunningText(KsMarkPath, Lines);
            // A run that waits shows this in its window; a box would block it.
            If (Text <> '') And KestruneWaitForm.Visible And (KsValue(Lines, 'Call=') = '')
                And (KsClock(0) - StrToIntDef(KsValue(Lines, 'Clock='), 0) <= KsLiveLimit) Then
                KestruneWaitForm.NoteLabel.Caption := 'An export is already running: this one.'
            Else If Text <> '' Then
                ShowWarning(Text);
        Finally
            Lines.Free;
        End;
    End;
    If Text <> '' Then MayStart := False;
    Result := MayStart;
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
