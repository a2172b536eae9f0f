unit Archives;
{$mode delphi}{$H+}
// Writes and reads ODB++ archives as those of a host: a ZIP with the table of layers and a folder for each. Uses no
// code of the product. Nothing is compressed.

interface

uses Classes;

type
  // The defect of an archive of this host: what is missing, or why it cannot be read.
  TFlaw = (Flawless, WithoutDrills, WithoutInnerCopper, EmptySilkscreen, WithoutKeepOut, EmptyKeepOut,
    WithoutDrillDrawing, EmptyDrillDrawing, ForeignCompression, CutEnd);

  TArchive = class
  private
    FMatrix: string;
    FNames, FContents: Classes.TStringList;
    FRows: Integer;
    procedure Add(const Name, Content: string);
  public
    Flaw: TFlaw;
    constructor Create;
    destructor Destroy; override;
    // A row of the table with its folder. Filled: there are objects in it.
    procedure AddLayer(const LayerType, Name: string; Filled: Boolean);
    // A file beside the layers that only tests read.
    procedure AddFile(const Name, Content: string);
    function Bytes: string;
  end;

// Returns what Kestrune.exe --inspect writes about an archive of this host.
function ListOfLayers(const Zip: string): string;

implementation

uses SysUtils, StrUtils, crc;

const
  Headings = '#'#10'#Feature symbol names'#10'#'#10'$0 r10'#10'#'#10'#Layer features'#10'#'#10;

function Number(Value: LongWord; Size: Integer): string;
var
  I: Integer;
begin
  Result := '';
  for I := 0 to Size - 1 do Result := Result + Chr((Value shr (8 * I)) and $FF);
end;

constructor TArchive.Create;
begin
  FNames := Classes.TStringList.Create;
  FContents := Classes.TStringList.Create;
  FMatrix := #13#10'STEP {'#13#10'    COL=1'#13#10'    NAME=PCB'#13#10'}'#13#10#13#10;
end;

destructor TArchive.Destroy;
begin
  FNames.Free;
  FContents.Free;
  inherited;
end;

procedure TArchive.Add(const Name, Content: string);
begin
  FNames.Add('odb/' + Name);
  FContents.Add(Content);
end;

procedure TArchive.AddLayer(const LayerType, Name: string; Filled: Boolean);
begin
  if (Flaw = WithoutDrills) and (LayerType = 'DRILL') then Exit;
  if (Flaw = WithoutInnerCopper) and (Pos('mid', Name) + Pos('plane', Name) > 0) then Exit;
  if (Flaw = EmptySilkscreen) and (LayerType = 'SILK_SCREEN') then Filled := False;
  if ((Flaw = WithoutKeepOut) and (Pos('keep', Name) = 1))
    or ((Flaw = WithoutDrillDrawing) and (Name = 'drill_drawing')) then Exit;
  if (Flaw = EmptyKeepOut) and (Pos('keep', Name) = 1) then Filled := False;
  if (Flaw = EmptyDrillDrawing) and (Name = 'drill_drawing') then Filled := False;
  Inc(FRows);
  FMatrix := FMatrix + 'LAYER {'#13#10'    ROW=' + IntToStr(FRows) + #13#10'    CONTEXT='
    + IfThen(LayerType = 'DOCUMENT', 'MISC', 'BOARD') + #13#10'    TYPE=' + LayerType
    + #13#10'    NAME=' + UpperCase(Name) + #13#10'    POLARITY=POSITIVE'#13#10'    START_NAME='
    + IfThen(LayerType = 'DRILL', 'TOP_LAYER') + #13#10'    END_NAME='
    + IfThen(LayerType = 'DRILL', 'BOTTOM_LAYER') + #13#10'    OLD_NAME='#13#10'}'#13#10#13#10;
  Add('steps/pcb/layers/' + Name + '/features', Headings + IfThen(Filled, 'P 1 1 0 P 0 0'#10));
end;

procedure TArchive.AddFile(const Name, Content: string);
begin
  Add(Name, Content);
end;

function TArchive.Bytes: string;
var
  I: Integer;
  Common, Directory, Method: string;
  Begins: LongWord;
begin
  Add('matrix/matrix', FMatrix);
  Result := '';
  Directory := '';
  for I := 0 to FNames.Count - 1 do
  begin
    Method := Number(0, 2);
    if Flaw = ForeignCompression then Method := Number(93, 2);
    Common := Number(20, 2) + Number(0, 2) + Method + Number(0, 2) + Number($5C67, 2)
      + Number(crc32(0, PByte(PChar(FContents[I])), Length(FContents[I])), 4)
      + Number(Length(FContents[I]), 4) + Number(Length(FContents[I]), 4)
      + Number(Length(FNames[I]), 2) + Number(0, 2);
    Begins := Length(Result);
    Result := Result + 'PK'#3#4 + Common + FNames[I] + FContents[I];
    Directory := Directory + 'PK'#1#2 + Number(20, 2) + Common + StringOfChar(#0, 10)
      + Number(Begins, 4) + FNames[I];
  end;
  Begins := Length(Result);
  Result := Result + Directory + 'PK'#5#6 + Number(0, 4) + Number(FNames.Count, 2)
    + Number(FNames.Count, 2) + Number(Length(Directory), 4) + Number(Begins, 4) + Number(0, 2);
  if Flaw = CutEnd then SetLength(Result, Length(Result) - 40);
end;

function Value(const Text: string; At, Size: Integer): Integer;
var
  I: Integer;
begin
  Result := 0;
  for I := Size - 1 downto 0 do Result := Result * 256 + Ord(Text[At + I]);
end;

// Returns the files of an archive as 'name=content'; none when it is truncated or compressed.
function FilesOf(const Zip: string): Classes.TStringList;
var
  At, Size: Integer;
begin
  Result := Classes.TStringList.Create;
  if (Length(Zip) < 22) or (Copy(Zip, Length(Zip) - 21, 4) <> 'PK'#5#6) then Exit;
  At := 1;
  while Copy(Zip, At, 4) = 'PK'#3#4 do
  begin
    if Value(Zip, At + 8, 2) <> 0 then Exit;
    Size := Value(Zip, At + 18, 4);
    Result.Add(Copy(Zip, At + 30, Value(Zip, At + 26, 2)) + '='
      + Copy(Zip, At + 30 + Value(Zip, At + 26, 2), Size));
    At := At + 30 + Value(Zip, At + 26, 2) + Size;
  end;
end;

function ListOfLayers(const Zip: string): string;
var
  Files, Lines, Row: Classes.TStringList;
  I: Integer;
  Features: string;
begin
  Files := FilesOf(Zip);
  Lines := Classes.TStringList.Create;
  Row := Classes.TStringList.Create;
  Lines.Text := Files.Values['odb/matrix/matrix'];
  Result := 'VERSION=1'#13#10'STEPS=1'#13#10;
  if Lines.Count = 0 then Result := 'VERSION=1'#13#10'ERROR=It cannot be read.'#13#10;
  for I := 0 to Lines.Count - 1 do
  begin
    Row.Add(Trim(Lines[I]));
    if Lines[I] <> '}' then Continue;
    if Row.IndexOf('LAYER {') >= 0 then
    begin
      Features := Files.Values['odb/steps/pcb/layers/' + LowerCase(Row.Values['NAME']) + '/features'];
      Result := Result + 'LAYER=' + Row.Values['TYPE'] + '|' + Row.Values['NAME'] + '|'
        + Row.Values['START_NAME'] + '|' + Row.Values['END_NAME'] + '|' + IntToStr(Length(Features))
        + '|' + IfThen(Pos(#10'P ', Features) > 0, 'some', 'none') + #13#10;
    end;
    Row.Clear;
  end;
  Result := Result + 'END'#13#10;
  Files.Free;
  Lines.Free;
  Row.Free;
end;

end.
