// Checks the export's assumptions in Altium Designer, and writes a report.
//
// Run it with File, Run Script, RunKestruneProbe, with a board in front that is
// saved and not precious. It takes about five minutes. Nothing is installed; the only
// folder that it writes to is KestruneProbe in the folder for temporary files, and,
// when you allow it, the temporary project of Kestrune.
//
// An error may stop the script in the debugger. That is a result too: stop it with
// Ctrl+F2 and run it again. It continues after the check at which it stopped.

Const
    PrPause       = 100;    // milliseconds between two polls
    PrLimit       = 100;    // polls until the host must have done something
    PrLastPlain   = 20;     // checks up to this one change nothing
    PrPrepares    = 21;     // the check that creates the temporary project
    PrLastOwn     = 29;     // the last check that needs the temporary project
    PrLast        = 38;     // the last check; those after PrLastOwn may stop the interpreter
    PrFirstKey    = 'Kestrune host report 1';
    PrJobMedium   = 'Kestrune ODB++';
    PrBreak       = #13#10;

Var
    PrFolder   : String;     // folder of the results
    PrTemp     : String;     // the temporary project of Kestrune
    PrProgram  : String;     // Kestrune.exe of the unpacked archive; empty when it is not there
    PrVersion  : String;
    PrHost     : Integer;
    PrRuns     : Integer;    // how often this was run since the script was loaded
    PrQuestion : Integer;
    PrStart    : Integer;
    PrAnswers  : TStringList;
    PrBoard    : IPCB_Board;
    PrPath     : String;     // path of the board in front
    PrMayWrite : Boolean;

{--- Answers -------------------------------------------------------------------}

Function PrFile(Number : Integer; Kind : String) : String;
Var
    Path : String;
Begin
    Path := PrFolder + '\' + IntToStr(Number) + '-' + Kind + '.txt';
    Result := Path;
End;

Procedure PrDelete(Path : String);
Begin
    If FileExists(Path) Then DeleteFile(Path);
End;

// Writes a file, only with a new name: an error while a file is created may stop the
// interpreter.
Procedure PrSave(Path : String; Lines : TStringList);
Begin
    PrDelete(Path);
    If DirectoryExists(PrFolder) And (Not FileExists(Path)) Then Lines.SaveToFile(Path);
End;

Procedure PrAnswer(Key : String; Value : String);
Begin
    PrAnswers.Add(Key + ' = ' + Value + ' ; seen on ' + PrVersion + ', '
        + IntToStr(GetTickCount - PrStart) + ' ms');
End;

Procedure PrYesNo(Key : String; Value : Boolean; Yes : String; No : String);
Begin
    If Value Then PrAnswer(Key, Yes)
    Else PrAnswer(Key, No);
End;

Function PrNumber(Count : Integer) : String;
Var
    Text : String;
Begin
    Text := IntToStr(Count);
    Result := Text;
End;

// Adds the results that follow from a stop at a check.
Procedure PrStopped(Number : Integer);
Begin
    PrStart := GetTickCount;
    PrAnswer('question' + IntToStr(Number), 'stops');
    If Number = 25 Then PrAnswer('document.save', 'nothing');
    If Number = 30 Then PrAnswer('error.file', 'stops');
    If Number = 31 Then PrAnswer('files.overwrite', 'fails');
    If Number = 32 Then PrAnswer('error.Rewrite', 'stops');
    If Number = 33 Then PrAnswer('error.Reset', 'stops');
    If Number = 34 Then PrAnswer('share.read', 'no');
    If Number = 35 Then PrAnswer('share.write', 'no');
    If Number = 36 Then PrAnswer('error.member', 'stops');
    If Number = 37 Then PrAnswer('iterators.nested', 'stops');
    If Number = 38 Then PrAnswer('member.TForm.Handle', 'stops');
    If Number = 3 Then PrAnswer('member.IClient.IsQuitting', 'stops');
    If Number = 4 Then PrAnswer('member.IClient.IsDocumentOpen', 'stops');
    If Number = 23 Then PrAnswer('member.IServerDocument.SetModified', 'stops');
    If Number = 13 Then PrAnswer('layers.flag', 'false');
End;

{--- Questions that change nothing ---------------------------------------------}

Procedure PrAskHost(Dummy : Integer);
Begin
    PrAnswer('host.version', PrVersion);
    PrAnswer('host.major', IntToStr(PrHost));
End;

Procedure PrAskLanguage(Dummy : Integer);
Begin
    PrYesNo('language.order', 'B' < 'a', 'by code', 'by language');
    PrAnswer('language.ord', IntToStr(Ord('a')));
    PrAnswer('language.ticks', IntToStr(GetTickCount Div 1000));
    PrAnswer('language.round', IntToStr(Round(78740.4)));
End;

Procedure PrAskQuitting(Dummy : Integer);
Begin
    PrYesNo('client.quitting', Client.IsQuitting, 'yes', 'no');
    PrAnswer('member.IClient.IsQuitting', 'works');
End;

Procedure PrAskOpen(Dummy : Integer);
Begin
    PrYesNo('client.open', Client.IsDocumentOpen(PrPath), 'yes', 'no');
    PrYesNo('client.open_other', Client.IsDocumentOpen(PrFolder + '\nothing.PcbDoc'), 'yes', 'no');
    PrAnswer('member.IClient.IsDocumentOpen', 'works');
End;

Procedure PrAskProjects(Dummy : Integer);
Begin
    PrAnswer('workspace.projects', IntToStr(GetWorkspace.DM_ProjectCount));
End;

Procedure PrAskScriptProject(Dummy : Integer);
Begin
    If PrHost >= 19 Then
        PrAnswer('script.project', ExtractFileName(GetRunningScriptProjectName));
End;

Procedure PrAskFiles(Dummy : Integer);
Var
    Lines : TStringList;
    Found : TStringList;
Begin
    Lines := TStringList.Create;
    Found := TStringList.Create;
    Try
        Lines.Add('x');
        PrSave(PrFolder + '\MixedCase.probe', Lines);
        FindFiles(PrFolder, '*.probe', faAnyFile, False, Found);
        PrAnswer('files.found', PrNumber(Found.Count));
        If Found.Count > 0 Then
        Begin
            PrYesNo('files.found_path', ExtractFileName(Found.Strings[0]) = Found.Strings[0], 'name', 'path');
            PrAnswer('files.found_name', ExtractFileName(Found.Strings[0]));
        End;
        PrAnswer('files.age', IntToStr(FileAge(PrFolder + '\MixedCase.probe')));
        PrDelete(PrFolder + '\MixedCase.probe');
        PrYesNo('files.deleted', FileExists(PrFolder + '\MixedCase.probe'), 'no', 'yes');
    Finally
        Lines.Free;
        Found.Free;
    End;
End;

Procedure PrAskEncoding(Dummy : Integer);
Var
    Lines : TStringList;
    Text  : String;
Begin
    Lines := TStringList.Create;
    Try
        Text := 'a' + Chr(228) + 'b';
        Lines.Add(Text);
        PrSave(PrFolder + '\encoding.probe', Lines);
        Lines.LoadFromFile(PrFolder + '\encoding.probe');
        PrYesNo('files.code_page', Lines.Strings[0] = Text, 'kept', 'changed');
        PrAnswer('files.length', IntToStr(Length(Lines.Strings[0])));
        PrDelete(PrFolder + '\encoding.probe');
    Finally
        Lines.Free;
    End;
End;

// Opens a missing file, whose error is the only one of a file call that is known to be
// caught.
Procedure PrAskMissingFile(Dummy : Integer);
Var
    Lines : TStringList;
Begin
    Lines := TStringList.Create;
    Try
        Try
            Lines.LoadFromFile(PrFolder + '\no such file.txt');
            PrAnswer('error.LoadFromFile', 'nothing');
        Except
            PrAnswer('error.LoadFromFile', 'caught');
        End;
    Finally
        Lines.Free;
    End;
End;

// Reports the beginning of the toolbar definitions: a byte order mark, or zeros between
// the letters, show the encoding.
Procedure PrReportResource(Path : String);
Var
    Lines : TStringList;
    First : String;
    Codes : String;
    I     : Integer;
Begin
    Lines := TStringList.Create;
    Try
        Lines.LoadFromFile(Path);
        PrAnswer('resource.lines', IntToStr(Lines.Count));
        First := '';
        If Lines.Count > 0 Then First := Copy(Lines.Strings[0], 1, 24);
        PrAnswer('resource.first', First);
        Codes := '';
        For I := 1 To Length(First) Do
            If I <= 8 Then Codes := Codes + ' ' + IntToStr(Ord(First[I]));
        PrAnswer('resource.codes', Codes);
    Finally
        Lines.Free;
    End;
End;

// Reports each place of the toolbar definitions below the folder of the host's own
// files.
Procedure PrAskResource(Dummy : Integer);
Var
    Found  : TStringList;
    Folder : String;
    I      : Integer;
Begin
    Folder := SpecialFolder_AltiumSystem;
    If Copy(Folder, Length(Folder), 1) = '\' Then Folder := Copy(Folder, 1, Length(Folder) - 1);
    Found := TStringList.Create;
    Try
        FindFiles(Folder, 'AdvPcb.rcs', faAnyFile, True, Found);
        PrYesNo('resource.there', Found.Count > 0, 'yes', 'no');
        For I := 0 To Found.Count - 1 Do
        Begin
            PrAnswer('resource.place', Copy(Found.Strings[I], Length(Folder) + 2, Length(Found.Strings[I])));
            If FileExists(Found.Strings[I]) Then PrReportResource(Found.Strings[I]);
        End;
    Finally
        Found.Free;
    End;
End;

// Reports the number of entries in the list of global script projects, and the value
// ItemsCount.
Procedure PrAskRegistry(Dummy : Integer);
Var
    Registry : TRegistry;
    Count    : Integer;
Begin
    Registry := TRegistry.Create;
    Try
        If Registry.OpenKey('Software\Altium\' + ExtractFileName(SpecialFolder_AltiumApplicationData)
            + '\DesignExplorer\Preferences\ScriptingSystem\Global Projects', False) Then
        Begin
            Count := 0;
            While Registry.ValueExists('Item' + IntToStr(Count)) Do Count := Count + 1;
            PrAnswer('registry.items', IntToStr(Count));
            If Registry.ValueExists('ItemsCount') Then
                PrAnswer('registry.count', Registry.ReadString('ItemsCount'))
            Else
                PrAnswer('registry.count', 'absent');
            Registry.CloseKey;
        End
        Else
            PrAnswer('registry.items', 'no key');
    Finally
        Registry.Free;
    End;
End;

Function PrIterator(Objects : TSet; Layers : TSet) : IPCB_BoardIterator;
Var
    Iterator : IPCB_BoardIterator;
Begin
    Iterator := PrBoard.BoardIterator_Create;
    Iterator.AddFilter_ObjectSet(Objects);
    Iterator.AddFilter_LayerSet(Layers);
    Iterator.AddFilter_Method(eProcessAll);
    Result := Iterator;
End;

Function PrHasObject(Layer : Integer) : Boolean;
Var
    Iterator : IPCB_BoardIterator;
    Item     : IPCB_Primitive;
    Has      : Boolean;
Begin
    Iterator := PrIterator(AllObjects, MkSet(Layer));
    Item := Iterator.FirstPCBObject;
    Has := Item <> Nil;
    PrBoard.BoardIterator_Destroy(Iterator);
    Result := Has;
End;

// Returns the number of the board's objects of one kind.
Function PrCount(Kind : Integer) : Integer;
Var
    Iterator : IPCB_BoardIterator;
    Item     : IPCB_Primitive;
    Count    : Integer;
Begin
    Count := 0;
    Iterator := PrIterator(MkSet(Kind), AllLayers);
    Item := Iterator.FirstPCBObject;
    While Item <> Nil Do
    Begin
        Count := Count + 1;
        Item := Iterator.NextPCBObject;
    End;
    PrBoard.BoardIterator_Destroy(Iterator);
    Result := Count;
End;

// Compares the flags of the layers with their objects, on layers that nearly every board
// uses.
Procedure PrAskFlags(Dummy : Integer);
Var
    Layer : Integer;
    Agree : Boolean;
    Text  : String;
Begin
    Agree := True;
    Text := '';
    For Layer := eTopOverlay To eBottomSolder Do
    Begin
        Text := Text + ' ' + IntToStr(Layer) + ':';
        If PrBoard.LayerIsUsed[Layer] Then Text := Text + 'flag ';
        If PrHasObject(Layer) Then Text := Text + 'object';
        If PrHasObject(Layer) And (Not PrBoard.LayerIsUsed[Layer]) Then Agree := False;
    End;
    PrAnswer('layers.flags', Text);
    PrYesNo('layers.flag', Agree, 'objects', 'false');
End;

Procedure PrAskCopper(Dummy : Integer);
Var
    Stack : IPCB_MasterLayerStack;
    Layer : IPCB_LayerObject;
    Text  : String;
Begin
    If PrHost >= 17 Then
    Begin
        Text := '';
        Stack := PrBoard.MasterLayerStack;
        Layer := Stack.First(eLayerClass_Electrical);
        While Layer <> Nil Do
        Begin
            Text := Text + ' ' + IntToStr(Layer.V7_LayerID.ID);
            Layer := Stack.Next(eLayerClass_Electrical, Layer);
        End;
        PrAnswer('layers.copper', Text);
    End;
End;

Procedure PrAskMechanical(Dummy : Integer);
Var
    Stack : IPCB_MasterLayerStack;
    Layer : IPCB_MechanicalLayer;
    Text  : String;
    I     : Integer;
Begin
    Text := '';
    If PrHost >= 19 Then
    Begin
        Stack := PrBoard.MasterLayerStack;
        For I := 1 To 1024 Do
        Begin
            Layer := Stack.GetMechanicalLayer(I);
            If Layer <> Nil Then
                If Layer.UsedByPrims Then Text := Text + ' ' + IntToStr(I);
        End;
    End
    Else If PrHost >= 17 Then
    Begin
        Stack := PrBoard.MasterLayerStack;
        For I := 1 To 32 Do
        Begin
            Layer := Stack.LayerObject_V7(LayerUtils.MechanicalLayer(I));
            If Layer <> Nil Then
                If Layer.UsedByPrims Then Text := Text + ' ' + IntToStr(I);
        End;
    End;
    PrAnswer('layers.mechanical', Text);
End;

Procedure PrAskPads(Dummy : Integer);
Var
    Iterator : IPCB_BoardIterator;
    Pad      : IPCB_Pad;
    Plated   : Integer;
    Unplated : Integer;
Begin
    Plated := 0;
    Unplated := 0;
    Iterator := PrIterator(MkSet(ePadObject), AllLayers);
    Pad := Iterator.FirstPCBObject;
    While Pad <> Nil Do
    Begin
        If Pad.HoleSize > 0 Then
        Begin
            If Pad.Plated Then Plated := Plated + 1
            Else Unplated := Unplated + 1;
        End;
        Pad := Iterator.NextPCBObject;
    End;
    PrBoard.BoardIterator_Destroy(Iterator);
    PrAnswer('pads.plated', IntToStr(Plated));
    PrAnswer('pads.unplated', IntToStr(Unplated));
End;

Procedure PrAskVias(Dummy : Integer);
Begin
    PrAnswer('vias', IntToStr(PrCount(eViaObject)));
End;

// Reports each clearance rule's text up to the gap, which may differ in another
// language.
Procedure PrAskRules(Dummy : Integer);
Var
    Iterator : IPCB_BoardIterator;
    Rule     : IPCB_Rule;
    Count    : Integer;
Begin
    Count := 0;
    Iterator := PrIterator(MkSet(eRuleObject), AllLayers);
    Rule := Iterator.FirstPCBObject;
    While Rule <> Nil Do
    Begin
        If Rule.RuleKind = eRule_Clearance Then
        Begin
            Count := Count + 1;
            PrYesNo('rule' + IntToStr(Count) + '.enabled', Rule.Enabled, 'yes', 'no');
            PrAnswer('rule' + IntToStr(Count), Copy(Rule.Descriptor, 1, 36));
        End;
        Rule := Iterator.NextPCBObject;
    End;
    PrBoard.BoardIterator_Destroy(Iterator);
    PrAnswer('rules.clearance', IntToStr(Count));
End;

// Returns the form of an embedded board's path, such as absolute, but not the path.
Function PrForm(Path : String) : String;
Var
    Form : String;
Begin
    If ExtractFileName(Path) = Path Then Form := 'name'
    Else If (Pos(':\', Path) = 2) Or (Pos('\\', Path) = 1) Then Form := 'absolute'
    Else Form := 'relative';
    Result := Form;
End;

Procedure PrAskChildren(Dummy : Integer);
Var
    Iterator : IPCB_BoardIterator;
    Child    : IPCB_EmbeddedBoard;
    Children : TObjectList;
    Board    : IPCB_Board;
    I        : Integer;
Begin
    Children := TObjectList.Create;
    Children.OwnsObjects := False;
    Iterator := PrIterator(MkSet(eEmbeddedBoardObject), AllLayers);
    Child := Iterator.FirstPCBObject;
    While Child <> Nil Do
    Begin
        Children.Add(Child);
        Child := Iterator.NextPCBObject;
    End;
    PrBoard.BoardIterator_Destroy(Iterator);
    PrAnswer('children', IntToStr(Children.Count));
    For I := 0 To Children.Count - 1 Do
    Begin
        Child := Children.Items[I];
        PrAnswer('child.path', PrForm(Child.DocumentPath));
        PrYesNo('child.mirrored', Child.MirrorFlag, 'yes', 'no');
        Board := Child.ChildBoard;
        If Board = Nil Then PrAnswer('child.board', 'none')
        Else PrAnswer('child.board', PrForm(Board.FileName));
    End;
    Children.Free;
End;

Procedure PrAskModified(Dummy : Integer);
Var
    Document : IServerDocument;
Begin
    Document := Client.GetDocumentByPath(PrPath);
    PrYesNo('document.modified_now', Document.Modified, 'yes', 'no');
End;

Procedure PrAskSettings(Dummy : Integer);
Var
    Settings : TIniFile;
    Lines    : TStringList;
Begin
    Lines := TStringList.Create;
    Try
        Lines.Add('[Export]');
        Lines.Add('SaveBoard=never');
        PrSave(PrFolder + '\settings.probe', Lines);
        Settings := TIniFile.Create(PrFolder + '\settings.probe');
        PrAnswer('ini.value', Settings.ReadString('Export', 'SaveBoard', 'ask'));
        Settings.Free;
        PrDelete(PrFolder + '\settings.probe');
    Finally
        Lines.Free;
    End;
End;

{--- The temporary project -----------------------------------------------------}

Function PrRun(Arguments : String) : Integer;
Var
    Code : Integer;
Begin
    Code := RunApplication('"' + PrProgram + '" ' + Arguments);
    Result := Code;
End;

Function PrAwait(Path : String; Looks : Integer) : Boolean;
Var
    Turns : Integer;
    There : Boolean;
Begin
    Turns := 0;
    Repeat
        There := FileExists(Path);
        If Not There Then
        Begin
            Sleep(PrPause);
            Application.ProcessMessages;
        End;
        Turns := Turns + 1;
    Until There Or (Turns > Looks);
    Result := There;
End;

// Starts the program that copies the board into the temporary project. Returns whether it
// wrote its status file.
Function PrPrepare(Dummy : Integer) : Boolean;
Var
    Lines    : TStringList;
    Code     : Integer;
    Answered : Boolean;
Begin
    Lines := TStringList.Create;
    Try
        Lines.Add('PlotKey=PlotTopLayerPlot');
        Lines.Add('PlotKey=PlotBottomLayerPlot');
        Lines.Add('PlotKey=PlotPTHPair0_Plot');
        Lines.Add('PlotKey=PlotNPTHPair0_Plot');
        PrSave(PrFolder + '\layers.probe', Lines);
        PrDelete(PrFolder + '\status.probe');
        Code := PrRun('--prepare "' + PrPath + '" "' + PrFolder + '\none.probe" "' + PrFolder
            + '\layers.probe" "' + PrFolder + '\status.probe"');
        PrAnswer('program.code', IntToStr(Code));
        Answered := PrAwait(PrFolder + '\status.probe', PrLimit * 10);
        PrDelete(PrFolder + '\layers.probe');
        PrDelete(PrFolder + '\status.probe');
    Finally
        Lines.Free;
    End;
    Result := Answered;
End;

// Checks quotes and arguments of a program, and makes the copy of the board that the
// next checks use.
Procedure PrAskProgram(Dummy : Integer);
Begin
    PrYesNo('program.answer', PrPrepare(0), 'came', 'none');
End;

Function PrBridgeIsFocused(Dummy : Integer) : Boolean;
Var
    Project : IProject;
    Focused : Boolean;
Begin
    Focused := False;
    Project := GetWorkspace.DM_FocusedProject;
    If Project <> Nil Then
        Focused := UpperCase(Project.DM_ProjectFullPath) = UpperCase(PrTemp + '\Bridge.PrjPcb');
    Result := Focused;
End;

// Measures how long it takes until a document that was shown has the focus.
Procedure PrAskFocus(Dummy : Integer);
Var
    Job   : IServerDocument;
    Pumps : Integer;
    Since : Integer;
Begin
    GetWorkspace.DM_OpenProject(PrTemp + '\Bridge.PrjPcb', True);
    Job := Client.OpenDocument('OUTPUTJOB', PrTemp + '\Bridge.OutJob');
    PrYesNo('focus.open', PrBridgeIsFocused(0), 'bridge', 'other');
    Since := GetTickCount;
    Pumps := 0;
    If Job <> Nil Then
    Begin
        Client.ShowDocument(Job);
        While (Not PrBridgeIsFocused(0)) And (Pumps < PrLimit) Do
        Begin
            Application.ProcessMessages;
            Sleep(PrPause);
            Pumps := Pumps + 1;
        End;
    End;
    PrAnswer('focus.pumps', IntToStr(Pumps));
    PrAnswer('focus.milliseconds', IntToStr(GetTickCount - Since));
    PrYesNo('focus.project', PrBridgeIsFocused(0), 'bridge', 'other');
End;

Procedure PrAskFocusedDocument(Dummy : Integer);
Var
    Document : IDocument;
Begin
    Document := GetWorkspace.DM_FocusedDocument;
    If Document = Nil Then PrAnswer('focus.document', 'none')
    Else PrAnswer('focus.document', ExtractFileExt(Document.DM_FullPath));
End;

Procedure PrAskSetModified(Dummy : Integer);
Var
    Document : IServerDocument;
    Marked   : Boolean;
Begin
    Document := Client.OpenDocument('PCB', PrTemp + '\Bridge.PcbDoc');
    If Document <> Nil Then
    Begin
        Document.SetModified(True);
        Marked := Document.Modified;
        Document.SetModified(False);
        PrYesNo('document.modified', Marked And (Not Document.Modified), 'changes', 'false');
        PrAnswer('member.IServerDocument.SetModified', 'works');
    End;
End;

Procedure PrAskCompile(Dummy : Integer);
Var
    Project : IProject;
Begin
    Project := GetWorkspace.DM_FocusedProject;
    If Project <> Nil Then
    Begin
        PrYesNo('project.needs_compile', Project.DM_NeedsCompile, 'yes', 'no');
        PrAnswer('project.documents', IntToStr(Project.DM_LogicalDocumentCount));
    End;
End;

Procedure PrAskSave(Dummy : Integer);
Var
    Document : IServerDocument;
    Age      : Integer;
Begin
    Document := Client.GetDocumentByPath(PrTemp + '\Bridge.PcbDoc');
    If Document <> Nil Then
    Begin
        Sleep(2100);
        Age := FileAge(PrTemp + '\Bridge.PcbDoc');
        Document.SetModified(True);
        Document.DoFileSave('');
        PrYesNo('document.save', FileAge(PrTemp + '\Bridge.PcbDoc') = Age, 'nothing', 'writes');
        Document.SetModified(False);
    End;
End;

// Rewrites fields of the job of the temporary project, in the file.
Procedure PrChangeJob(From : String; Into : String);
Var
    Lines : TStringList;
    I     : Integer;
Begin
    Lines := TStringList.Create;
    Try
        Lines.LoadFromFile(PrTemp + '\Bridge.OutJob');
        For I := 0 To Lines.Count - 1 Do
            If Pos('Configuration1_Item1=', Lines.Strings[I]) = 1 Then
                Lines.Strings[I] := StringReplace(Lines.Strings[I], From, Into, MkSet(rfReplaceAll));
        PrDelete(PrTemp + '\Bridge.OutJob');
        If Not FileExists(PrTemp + '\Bridge.OutJob') Then Lines.SaveToFile(PrTemp + '\Bridge.OutJob');
    Finally
        Lines.Free;
    End;
End;

// Reports the number of layers in an archive and its drill layers, as Kestrune.exe
// --inspect lists them.
Procedure PrReportArchive(Name : String);
Var
    Lines : TStringList;
    Zip   : String;
    I     : Integer;
    Count : Integer;
Begin
    Zip := PrTemp + '\Project Outputs for Bridge\ODB\Bridge.zip';
    PrYesNo('archive.' + Name, FileExists(Zip), 'written', 'none');
    If FileExists(Zip) Then
    Begin
        Lines := TStringList.Create;
        Try
            PrDelete(PrFolder + '\layers.probe');
            PrRun('--inspect "' + Zip + '" "' + PrFolder + '\layers.probe"');
            Count := 0;
            If PrAwait(PrFolder + '\layers.probe', PrLimit) Then
            Begin
                Lines.LoadFromFile(PrFolder + '\layers.probe');
                For I := 0 To Lines.Count - 1 Do
                Begin
                    If Pos('LAYER=', Lines.Strings[I]) = 1 Then Count := Count + 1;
                    If Pos('LAYER=DRILL|', Lines.Strings[I]) = 1 Then
                        PrAnswer('archive.' + Name + '.drill', Lines.Strings[I]);
                End;
            End;
            PrAnswer('archive.' + Name + '.layers', IntToStr(Count));
            PrDelete(PrFolder + '\layers.probe');
        Finally
            Lines.Free;
        End;
    End;
End;

// Closes a document of the temporary project without saving it.
Procedure PrCloseOwn(Name : String);
Var
    Document : IServerDocument;
Begin
    Document := Client.GetDocumentByPath(PrTemp + '\Bridge.' + Name);
    If Document <> Nil Then
    Begin
        Document.SetModified(False);
        Client.CloseDocument(Document);
    End;
End;

// Shows a document of the temporary project, processes messages at least so many times,
// and returns whether the project then has the focus.
Function PrFocusBridge(Document : IServerDocument; Least : Integer) : Boolean;
Var
    Pumps   : Integer;
    Focused : Boolean;
Begin
    Client.ShowDocument(Document);
    Pumps := 0;
    Repeat
        Application.ProcessMessages;
        Sleep(PrPause);
        Pumps := Pumps + 1;
        Focused := PrBridgeIsFocused(0);
    Until ((Pumps > Least) And Focused) Or (Pumps > PrLimit);
    Result := Focused;
End;

Procedure PrGenerate(Name : String);
Var
    Job : IServerDocument;
    Zip : String;
Begin
    Zip := PrTemp + '\Project Outputs for Bridge\ODB\Bridge.zip';
    PrDelete(Zip);
    Job := Client.OpenDocument('OUTPUTJOB', PrTemp + '\Bridge.OutJob');
    If Job <> Nil Then
    Begin
        If PrFocusBridge(Job, 10) Then
        Begin
            ResetParameters;
            AddStringParameter('Action', 'Run');
            AddStringParameter('ObjectKind', 'OutputBatch');
            AddStringParameter('OutputMedium', PrJobMedium);
            AddStringParameter('DisableDialog', 'True');
            RunProcess('WorkspaceManager:GenerateReport');
        End;
        PrAwait(Zip, PrLimit);
        PrReportArchive(Name);
    End;
    PrCloseOwn('OutJob');
End;

// Exports three archives of the board: with the drill fields as in the job, with those
// of other layer pairs too, and without any drill field.
Procedure PrAskDrills(Dummy : Integer);
Begin
    PrGenerate('as_the_job');
    PrChangeJob('Pairs=False', 'Pairs=True');
    PrGenerate('all_pairs');
    PrChangeJob('Pairs=True', 'Pairs=False');
    PrChangeJob('PlotPTHPair0_', 'UnknownPTHPair0_');
    PrChangeJob('PlotNPTHPair0_', 'UnknownNPTHPair0_');
    PrGenerate('no_drill_field');
End;

// Closes the temporary project and checks that its documents are closed.
Procedure PrAskClosing(Dummy : Integer);
Var
    Document : IServerDocument;
Begin
    PrCloseOwn('OutJob');
    Document := Client.OpenDocument('PCB', PrTemp + '\Bridge.PcbDoc');
    If Document <> Nil Then
    Begin
        Document.SetModified(False);
        If PrFocusBridge(Document, 0) Then
        Begin
            ResetParameters;
            AddStringParameter('ObjectKind', 'FocusedProjectAndDocuments');
            RunProcess('WorkspaceManager:CloseObject');
        End;
        PrYesNo('close.documents', Client.GetDocumentByPath(PrTemp + '\Bridge.PcbDoc') <> Nil, 'stay', 'go');
        PrYesNo('close.documents_open', Client.IsDocumentOpen(PrTemp + '\Bridge.PcbDoc'), 'yes', 'no');
        PrCloseOwn('PcbDoc');
        PrYesNo('close.document', Client.GetDocumentByPath(PrTemp + '\Bridge.PcbDoc') <> Nil, 'stays', 'goes');
        PrYesNo('close.document_open', Client.IsDocumentOpen(PrTemp + '\Bridge.PcbDoc'), 'yes', 'no');
    End;
End;

// Opens the copy of the board and waits until it is in front; Nil when it does not come.
Function PrOpenCopy(Dummy : Integer) : IPCB_Board;
Var
    Document : IServerDocument;
    Copied   : IPCB_Board;
    Pumps    : Integer;
Begin
    Copied := Nil;
    Document := Client.OpenDocument('PCB', PrTemp + '\Bridge.PcbDoc');
    If Document <> Nil Then
    Begin
        Client.ShowDocument(Document);
        Pumps := 0;
        Repeat
            Application.ProcessMessages;
            Sleep(PrPause);
            Pumps := Pumps + 1;
            Copied := PCBServer.GetCurrentPCBBoard;
            If Copied <> Nil Then
                If UpperCase(Copied.FileName) <> UpperCase(PrTemp + '\Bridge.PcbDoc') Then Copied := Nil;
        Until (Copied <> Nil) Or (Pumps > PrLimit);
    End;
    Result := Copied;
End;

Procedure PrAddTrack(Dummy : Integer);
Var
    Track : IPCB_Track;
Begin
    Track := PCBServer.PCBObjectFactory(eTrackObject, eNoDimension, eCreate_Default);
    If Track <> Nil Then PrBoard.AddPCBObject(Track);
End;

// Checks whether a file with the same path and other content is read anew. The copy gets
// a track in memory only. After it was closed without saving, prepared and opened again,
// it must not have that track.
Procedure PrAskReopening(Dummy : Integer);
Var
    Own    : IPCB_Board;
    Before : Integer;
    Added  : Boolean;
Begin
    Own := PrBoard;
    Added := False;
    Before := 0;
    PrBoard := PrOpenCopy(0);
    If PrBoard <> Nil Then
    Begin
        Before := PrCount(eTrackObject);
        PrAddTrack(0);
        Added := PrCount(eTrackObject) = Before + 1;
    End;
    PrCloseOwn('PcbDoc');
    If Added Then Added := PrPrepare(0);
    If Added Then
    Begin
        PrBoard := PrOpenCopy(0);
        If PrBoard <> Nil Then
            PrYesNo('reopen.content', PrCount(eTrackObject) = Before, 'anew', 'stale');
        PrCloseOwn('PcbDoc');
    End;
    PrBoard := Own;
End;

{--- Questions that may stop the interpreter -----------------------------------}

Procedure PrAskFileError(Dummy : Integer);
Var
    Lines : TStringList;
Begin
    Lines := TStringList.Create;
    Try
        Lines.SaveToFile(PrFolder + '\no such folder\x.txt');
        PrAnswer('error.file', 'caught');
    Except
        PrAnswer('error.file', 'caught');
    End;
    Lines.Free;
End;

Procedure PrAskOverwriting(Dummy : Integer);
Var
    Lines : TStringList;
    Path  : String;
Begin
    Lines := TStringList.Create;
    Path := PrFolder + '\' + IntToStr(GetTickCount) + '-twice.probe';
    Lines.Add('x');
    PrSave(Path, Lines);
    Try
        Lines.SaveToFile(Path);
        PrAnswer('files.overwrite', 'works');
    Except
        PrAnswer('files.overwrite', 'fails');
    End;
    Lines.Free;
    PrDelete(Path);
End;

// Checks whether another program can read a file that a script holds open.
Procedure PrAskOtherProgram(Path : String);
Var
    Lines : TStringList;
Begin
    Lines := TStringList.Create;
    PrDelete(PrFolder + '\share.probe');
    PrRun('--inspect "' + Path + '" "' + PrFolder + '\share.probe"');
    If PrAwait(PrFolder + '\share.probe', PrLimit) Then
    Begin
        Lines.LoadFromFile(PrFolder + '\share.probe');
        PrYesNo('share.program', Pos('could not be opened', Lines.Text) = 0, 'reads', 'cannot open');
    End;
    Lines.Free;
    PrDelete(PrFolder + '\share.probe');
End;

// Checks who can read and delete a text file while a script writes it.
Procedure PrAskShareRead(Dummy : Integer);
Var
    Handle : TextFile;
    Lines  : TStringList;
    Path   : String;
Begin
    Path := PrFolder + '\' + IntToStr(GetTickCount) + '-open.probe';
    Lines := TStringList.Create;
    AssignFile(Handle, Path);
    Rewrite(Handle);
    Try
        Lines.LoadFromFile(Path);
        PrAnswer('share.read', 'yes');
    Except
        PrAnswer('share.read', 'no');
    End;
    If PrProgram <> '' Then PrAskOtherProgram(Path);
    PrDelete(Path);
    PrYesNo('share.delete', FileExists(Path), 'no', 'yes');
    CloseFile(Handle);
    Lines.Free;
    PrDelete(Path);
End;

// Checks whether a second handle can write at the same time.
Procedure PrAskShareWrite(Dummy : Integer);
Var
    Handle : TextFile;
    Second : TextFile;
    Path   : String;
Begin
    Path := PrFolder + '\' + IntToStr(GetTickCount) + '-open.probe';
    AssignFile(Handle, Path);
    Rewrite(Handle);
    Try
        AssignFile(Second, Path);
        Append(Second);
        CloseFile(Second);
        PrAnswer('share.write', 'yes');
    Except
        PrAnswer('share.write', 'no');
    End;
    CloseFile(Handle);
    PrDelete(Path);
End;

Procedure PrAskRewrite(Dummy : Integer);
Var
    Handle : TextFile;
Begin
    Try
        AssignFile(Handle, PrFolder + '\no such folder\x.txt');
        Rewrite(Handle);
        PrAnswer('error.Rewrite', 'caught');
    Except
        PrAnswer('error.Rewrite', 'caught');
    End;
End;

Procedure PrAskReset(Dummy : Integer);
Var
    Handle : TextFile;
Begin
    Try
        AssignFile(Handle, PrFolder + '\no such file.txt');
        Reset(Handle);
        PrAnswer('error.Reset', 'caught');
    Except
        PrAnswer('error.Reset', 'caught');
    End;
End;

Procedure PrAskMember(Dummy : Integer);
Begin
    Try
        Client.KestruneHasNoSuchMember;
        PrAnswer('error.member', 'nothing');
    Except
        PrAnswer('error.member', 'caught');
    End;
End;

Procedure PrAskNested(Dummy : Integer);
Var
    Outer : IPCB_BoardIterator;
    Inner : IPCB_BoardIterator;
    Item  : IPCB_Primitive;
Begin
    Outer := PrIterator(AllObjects, AllLayers);
    Item := Outer.FirstPCBObject;
    Inner := PrIterator(AllObjects, AllLayers);
    If Item <> Nil Then Item := Inner.FirstPCBObject;
    PrBoard.BoardIterator_Destroy(Inner);
    PrBoard.BoardIterator_Destroy(Outer);
    PrAnswer('iterators.nested', 'works');
End;

// Checks whether a form has a handle. If so, exports centre their window in this host
// from now on.
Procedure PrAskHandle(Dummy : Integer);
Var
    Lines : TStringList;
    Home  : String;
    I     : Integer;
Begin
    KestruneProbeForm.Show;
    I := KestruneProbeForm.Handle;
    KestruneProbeForm.Hide;
    PrYesNo('member.TForm.Handle', I <> 0, 'works', 'stops');
    PrYesNo('client.window', Client.MainWindowHandle <> 0, 'known', 'zero');
    I := Pos('\APPDATA\', UpperCase(PrFolder));
    Home := Copy(PrFolder, 1, I) + 'AppData\Local\Kestrune';
    If (I > 0) And DirectoryExists(Home) And (Not FileExists(Home + '\form-handle-' + PrVersion + '.txt')) Then
    Begin
        Lines := TStringList.Create;
        Lines.SaveToFile(Home + '\form-handle-' + PrVersion + '.txt');
        Lines.Free;
    End;
End;

{--- The run -------------------------------------------------------------------}

Procedure PrAskPlain(Number : Integer);
Begin
    If Number = 1 Then PrAskHost(0);
    If Number = 2 Then PrAskLanguage(0);
    If Number = 3 Then PrAskQuitting(0);
    If Number = 4 Then PrAskOpen(0);
    If Number = 5 Then PrAskProjects(0);
    If Number = 6 Then PrAskScriptProject(0);
    If Number = 7 Then PrAskFiles(0);
    If Number = 8 Then PrAskEncoding(0);
    If Number = 9 Then PrAskMissingFile(0);
    If Number = 10 Then PrAskSettings(0);
    If Number = 11 Then PrAskResource(0);
    If Number = 12 Then PrAskRegistry(0);
    If Number = 13 Then PrAskFlags(0);
    If Number = 14 Then PrAskCopper(0);
    If Number = 15 Then PrAskMechanical(0);
    If Number = 16 Then PrAskPads(0);
    If Number = 17 Then PrAskVias(0);
    If Number = 18 Then PrAskRules(0);
    If Number = 19 Then PrAskChildren(0);
    If Number = 20 Then PrAskModified(0);
End;

Procedure PrAskOwn(Number : Integer);
Begin
    If Number = 21 Then PrAskProgram(0);
    If Number = 22 Then PrAskFocus(0);
    If Number = 23 Then PrAskSetModified(0);
    If Number = 24 Then PrAskFocusedDocument(0);
    If Number = 25 Then PrAskSave(0);
    If Number = 26 Then PrAskCompile(0);
    If Number = 27 Then PrAskDrills(0);
    If Number = 28 Then PrAskClosing(0);
    If Number = 29 Then PrAskReopening(0);
End;

Procedure PrAskLast(Number : Integer);
Begin
    If Number = 30 Then PrAskFileError(0);
    If Number = 31 Then PrAskOverwriting(0);
    If Number = 32 Then PrAskRewrite(0);
    If Number = 33 Then PrAskReset(0);
    If Number = 34 Then PrAskShareRead(0);
    If Number = 35 Then PrAskShareWrite(0);
    If Number = 36 Then PrAskMember(0);
    If Number = 37 Then PrAskNested(0);
    If Number = 38 Then PrAskHandle(0);
End;

// Carries out one check. Its mark is written first: if the interpreter stops, the mark
// is left.
Procedure PrAsk(Number : Integer);
Begin
    While PrAnswers.Count > 0 Do PrAnswers.Delete(0);
    PrStart := GetTickCount;
    If FileExists(PrFile(Number, 'asked')) Then PrStopped(Number)
    Else
    Begin
        PrAnswers.Add('asked');
        PrSave(PrFile(Number, 'asked'), PrAnswers);
        PrAnswers.Delete(0);
        If Number <= PrLastPlain Then PrAskPlain(Number)
        Else If Number = PrPrepares Then PrAskOwn(Number)
        Else If Number <= PrLastOwn Then
        Begin
            If FileExists(PrTemp + '\Bridge.PrjPcb') Then PrAskOwn(Number)
            Else PrAnswer('question' + IntToStr(Number), 'no temporary project');
        End
        Else PrAskLast(Number);
    End;
    PrSave(PrFile(Number, 'answer'), PrAnswers);
    PrDelete(PrFile(Number, 'asked'));
End;

Procedure PrAskAll(Dummy : Integer);
Var
    Wanted : Boolean;
Begin
    For PrQuestion := 1 To PrLast Do
    Begin
        Wanted := Not FileExists(PrFile(PrQuestion, 'answer'));
        If (PrQuestion > PrLastPlain) And (PrQuestion <= PrLastOwn) And (Not PrMayWrite) Then Wanted := False;
        If Wanted Then PrAsk(PrQuestion);
    End;
End;

// Writes all results to a new file and shows it.
Procedure PrReport(Dummy : Integer);
Var
    Report : TStringList;
    Part   : TStringList;
    Path   : String;
    I      : Integer;
    J      : Integer;
    Shown  : IServerDocument;
Begin
    Report := TStringList.Create;
    Part := TStringList.Create;
    Report.Add(PrFirstKey);
    Report.Add('Please send this file to those from whom you have Kestrune. It names no path of yours.');
    Report.Add(' ');
    For I := 1 To PrLast Do
        If FileExists(PrFile(I, 'answer')) Then
        Begin
            Part.LoadFromFile(PrFile(I, 'answer'));
            For J := 0 To Part.Count - 1 Do Report.Add(Part.Strings[J]);
            PrDelete(PrFile(I, 'answer'));
        End;
    If PrRuns > 1 Then Report.Add('globals.kept = yes ; seen on ' + PrVersion)
    Else Report.Add('globals.kept = no ; or this was the first run: run the probe twice to see');
    Path := PrFolder + '\report-' + IntToStr(GetTickCount) + '.txt';
    PrSave(Path, Report);
    Report.Free;
    Part.Free;
    Shown := Client.OpenDocument('Text', Path);
    If Shown <> Nil Then Client.ShowDocument(Shown);
    ShowInfo('The report is' + PrBreak + Path + PrBreak + PrBreak
        + 'Please send it to those from whom you have Kestrune.');
End;

// Finds Kestrune.exe: in the unpacked archive, beside the folder of this script, or in
// the runtime folder.
Procedure PrFindProgram(Dummy : Integer);
Var
    Folder : String;
    I      : Integer;
Begin
    PrProgram := '';
    Folder := '';
    If PrHost >= 19 Then Folder := ExtractFilePath(GetRunningScriptProjectName);
    I := Pos('\DIAGNOSTICS\', UpperCase(Folder));
    If I > 0 Then PrProgram := Copy(Folder, 1, I) + 'Kestrune.exe';
    If Not FileExists(PrProgram) Then PrProgram := '';
    I := Pos('\APPDATA\', UpperCase(PrFolder));
    If (PrProgram = '') And (I > 0) Then
        PrProgram := Copy(PrFolder, 1, I) + 'AppData\Local\Kestrune\Runtime\Kestrune.exe';
    If Not FileExists(PrProgram) Then PrProgram := '';
    PrTemp := SpecialFolder_AllUserDocuments;
    If Copy(PrTemp, Length(PrTemp), 1) = '\' Then PrTemp := Copy(PrTemp, 1, Length(PrTemp) - 1);
    PrTemp := PrTemp + '\Kestrune\Temp';
End;

Procedure PrBegin(Dummy : Integer);
Begin
    PrFolder := SpecialFolder_Temporary;
    If Copy(PrFolder, Length(PrFolder), 1) <> '\' Then PrFolder := PrFolder + '\';
    PrFolder := PrFolder + 'KestruneProbe';
    If Not DirectoryExists(PrFolder) Then ForceDirectories(PrFolder);
    PrVersion := Client.GetProductVersion;
    PrHost := GetBuildNumberPart(PrVersion, 0);
    PrRuns := PrRuns + 1;
    PrFindProgram(0);
    PrMayWrite := False;
    If PrProgram <> '' Then
        PrMayWrite := ConfirmNoYes('May the probe export this board three times into the temporary project of'
            + ' Kestrune? Your board, your projects and your exports stay as they are. Without this it asks'
            + ' less.');
End;

// Finds the user's board in front; the copy in the temporary project does not count.
Function PrFindBoard(Dummy : Integer) : Boolean;
Var
    Found : Boolean;
Begin
    PrBoard := Nil;
    If PCBServer <> Nil Then PrBoard := PCBServer.GetCurrentPCBBoard;
    Found := PrBoard <> Nil;
    If Found Then
    Begin
        PrPath := PrBoard.FileName;
        Found := Pos('\KESTRUNE\TEMP\', UpperCase(PrPath)) = 0;
    End;
    Result := Found;
End;

Procedure RunKestruneProbe;
Begin
    If Not PrFindBoard(0) Then
        ShowWarning('Open a saved board that is not precious, click into it and run the probe again.')
    Else
    Begin
        PrBegin(0);
        PrAnswers := TStringList.Create;
        PrAskAll(0);
        PrAnswers.Free;
        PrReport(0);
    End;
End;
