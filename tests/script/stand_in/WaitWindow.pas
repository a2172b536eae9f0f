unit WaitWindow;
{$mode delphi}{$H+}
// Shows the host's window and the script's form on the screen: the form as the package's .dfm describes
// it, with the texts and values that the script assigns.

interface

uses HostStandIn;

// Shows the host's window and creates the form; from then on each repaint of the form is seen.
procedure ShowWindows(const Title, FormFile: string);

// Returns the place of the form on the screen, and the middle of the screen's work area.
procedure FindPlace(var Left, Top, MiddleX, MiddleY: Integer);

implementation

uses Classes, SysUtils, HostServer;

var
  Shown: Classes.TStringList;    // what was sent last about each part of the form

// Returns the value of a property in lines of a .dfm, or Missing when it is absent.
function Value(Lines: Classes.TStringList; First: Integer; const Name, Missing: string): string;
var
  I: Integer;
  Line: string;
begin
  Result := Missing;
  for I := First + 1 to Lines.Count - 1 do
  begin
    Line := Trim(Lines[I]);
    if (Line = 'end') or (Pos('object ', Line) = 1) then Exit;
    if Pos(Name + ' = ', Line) = 1 then Result := Copy(Line, Length(Name) + 4, Length(Line));
  end;
end;

function Text(Lines: Classes.TStringList; First: Integer): string;
begin
  Result := StringReplace(Value(Lines, First, 'Caption', ''''''), '''', '', [SysUtils.rfReplaceAll]);
end;

function WindowClass(const ControlClass: string): string;
begin
  Result := 'STATIC';
  if ControlClass = 'TProgressBar' then Result := 'msctls_progress32';
  if ControlClass = 'TButton' then Result := 'BUTTON';
end;

procedure AddControl(Lines: Classes.TStringList; First: Integer);
var
  Head, Bold: string;
begin
  Head := Copy(Trim(Lines[First]), 8, 99);
  Bold := '0';
  if Pos('fsBold', Value(Lines, First, 'Font.Style', '')) > 0 then Bold := '1';
  Tell(['control', Copy(Head, 1, Pos(':', Head) - 1), WindowClass(Trim(Copy(Head, Pos(':', Head) + 1, 99))),
    Value(Lines, First, 'Left', ''), Value(Lines, First, 'Top', ''), Value(Lines, First, 'Width', ''),
    Value(Lines, First, 'Height', ''), Bold, Text(Lines, First)]);
end;

// Sends the values when they differ from those that were sent last.
procedure Update(const Command, Name: string; const Values: array of string);
var
  I: Integer;
  Fields: array of string;
  All: string;
begin
  SetLength(Fields, Length(Values) + 1);
  Fields[0] := Command;
  All := '';
  for I := 0 to High(Values) do
  begin
    Fields[I + 1] := Values[I];
    All := All + Values[I] + #9;
  end;
  if Shown.Values[Name] = All then Exit;
  Shown.Values[Name] := All;
  Tell(Fields);
end;

procedure Paint(Form: TForm);
var
  I: Integer;
  Control: TControl;
begin
  for I := 0 to Form.Controls.Count - 1 do
  begin
    Control := TControl(Form.Controls[I]);
    if Control is TProgressBar then
      Update('bar', Control.Name, [Control.Name, IntToStr(TProgressBar(Control).Max),
        IntToStr(TProgressBar(Control).Position)]);
    if Control is TLabel then Update('text', Control.Name, [Control.Name, TLabel(Control).Caption]);
    if Control is TButton then
      Update('enable', Control.Name, [Control.Name, IntToStr(Ord(TButton(Control).Enabled))]);
  end;
  Update('show', 'the form', [IntToStr(Ord(Form.Visible))]);
end;

procedure ShowWindows(const Title, FormFile: string);
var
  Lines, Handles: Classes.TStringList;
  I: Integer;
begin
  Lines := Classes.TStringList.Create;
  Lines.LoadFromFile(FormFile);
  Handles := Ask(['windows', Title, Text(Lines, 0), Value(Lines, 0, 'ClientWidth', ''),
    Value(Lines, 0, 'ClientHeight', '')], 'windows');
  FormHandle := StrToInt(Handles[0]);
  MainHandle := StrToInt(Handles[1]);
  for I := 1 to Lines.Count - 1 do
    if Pos('object ', Trim(Lines[I])) = 1 then AddControl(Lines, I);
  Shown.Clear;
  OnPaint := Paint;
  Handles.Free;
  Lines.Free;
end;

procedure FindPlace(var Left, Top, MiddleX, MiddleY: Integer);
var
  Place: Classes.TStringList;
begin
  Place := Ask(['place'], 'place');
  Left := StrToInt(Place[0]);
  Top := StrToInt(Place[1]);
  MiddleX := (StrToInt(Place[4]) + StrToInt(Place[6]) - StrToInt(Place[2]) + Left) div 2;
  MiddleY := (StrToInt(Place[5]) + StrToInt(Place[7]) - StrToInt(Place[3]) + Top) div 2;
  Place.Free;
end;

initialization
  Shown := Classes.TStringList.Create;
end.
