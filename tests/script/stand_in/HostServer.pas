unit HostServer;
{$mode delphi}{$H+}
// The connection to the part of the stand-in that is a Windows program: host_server.exe, which starts
// programs, finds their boxes, holds files open and shows windows. One instance runs during all tests.

interface

uses Classes;

type
  // An event of a started program: 'box' with icon and text, or 'ended' with its code.
  TProgramEvent = procedure(const Id: string; const Event: Classes.TStrings);

var
  OnProgramEvent: TProgramEvent;

// Starts the server. Requires the project's folder as the current one, and the prefix of the tests in the environment.
procedure StartServer;
procedure StopServer;

// Sends a command.
procedure Tell(const Fields: array of string);

// Sends a command, waits for the reply of this name, and returns its fields without the name.
function Ask(const Fields: array of string; const Answer: string): Classes.TStringList;

// Handles the events of started programs. Waits for the first one, at most so many milliseconds.
procedure HandleProgramEvents(Milliseconds: Integer);

implementation

uses SysUtils, Process;

const
  AnswerLimit = 60000;   // milliseconds; a start under Wine on a busy machine takes seconds

var
  Server: TProcess;
  Pending: string;       // the beginning of a line whose rest has not arrived

function Escaped(const Field: string): string;
begin
  Result := StringReplace(Field, '\', '\\', [rfReplaceAll]);
  Result := StringReplace(Result, #13, '', [rfReplaceAll]);
  Result := StringReplace(Result, #10, '\n', [rfReplaceAll]);
end;

function Plain(const Field: string): string;
var
  I: Integer;
begin
  Result := '';
  I := 1;
  while I <= Length(Field) do
  begin
    if (Field[I] = '\') and (I < Length(Field)) then
    begin
      Inc(I);
      if Field[I] = 'n' then Result := Result + #10
      else Result := Result + Field[I];
    end
    else Result := Result + Field[I];
    Inc(I);
  end;
end;

procedure StartServer;
begin
  Server := TProcess.Create(nil);
  Server.Executable := 'tests/script/start';
  Server.Parameters.Add('build/release/tests/programs/host_server.exe');
  Server.Options := [poUsePipes];
  Server.Execute;
end;

procedure StopServer;
begin
  if Server = nil then Exit;
  Server.CloseInput;
  Server.WaitOnExit;
  FreeAndNil(Server);
end;

procedure Tell(const Fields: array of string);
var
  I: Integer;
  Line: string;
begin
  if Server = nil then raise Exception.Create('programs are started in the group real only');
  Line := '';
  for I := 0 to High(Fields) do
  begin
    if I > 0 then Line := Line + #9;
    Line := Line + Escaped(Fields[I]);
  end;
  Line := Line + #10;
  Server.Input.WriteBuffer(Line[1], Length(Line));
end;

// Reads the next line; False when it does not arrive within so many milliseconds.
function ReadLine(Milliseconds: Integer; var Line: string): Boolean;
var
  Waited, Count: Integer;
  Bytes: string;
begin
  Waited := 0;
  while (Pos(#10, Pending) = 0) and (Waited <= Milliseconds) do
  begin
    Count := Server.Output.NumBytesAvailable;
    if Count > 0 then
    begin
      SetLength(Bytes, Count);
      SetLength(Bytes, Server.Output.Read(Bytes[1], Count));
      Pending := Pending + Bytes;
    end
    else
    begin
      if not Server.Running then raise Exception.Create('host_server.exe ended');
      if Waited < Milliseconds then SysUtils.Sleep(2);
      Inc(Waited, 2);
    end;
  end;
  Result := Pos(#10, Pending) > 0;
  if not Result then Exit;
  Line := Copy(Pending, 1, Pos(#10, Pending) - 1);
  Delete(Pending, 1, Length(Line) + 1);
end;

function FieldsOf(const Line: string): Classes.TStringList;
var
  Rest: string;
begin
  Result := Classes.TStringList.Create;
  Rest := StringReplace(Line, #13, '', [rfReplaceAll]) + #9;
  while Rest <> '' do
  begin
    Result.Add(Plain(Copy(Rest, 1, Pos(#9, Rest) - 1)));
    Delete(Rest, 1, Pos(#9, Rest));
  end;
end;

// Returns whether these fields are an event of a program, and handles it.
function IsProgramEvent(Fields: Classes.TStringList): Boolean;
var
  Id: string;
begin
  Result := (Fields[0] = 'box') or (Fields[0] = 'ended');
  if not Result then Exit;
  Id := Fields[1];
  Fields.Delete(1);
  OnProgramEvent(Id, Fields);
end;

function Ask(const Fields: array of string; const Answer: string): Classes.TStringList;
var
  Line: string;
begin
  Tell(Fields);
  while ReadLine(AnswerLimit, Line) do
  begin
    Result := FieldsOf(Line);
    if Result[0] = Answer then
    begin
      Result.Delete(0);
      Exit;
    end;
    if not IsProgramEvent(Result) then raise Exception.Create('host_server.exe said ' + Line);
    Result.Free;
  end;
  raise Exception.Create('host_server.exe did not answer to ' + Fields[0]);
end;

procedure HandleProgramEvents(Milliseconds: Integer);
var
  Line: string;
  Fields: Classes.TStringList;
  Limit: Integer;
begin
  Limit := Milliseconds;
  while ReadLine(Limit, Line) do
  begin
    Limit := 0;
    Fields := FieldsOf(Line);
    if not IsProgramEvent(Fields) then raise Exception.Create('host_server.exe said ' + Line);
    Fields.Free;
  end;
end;

end.
