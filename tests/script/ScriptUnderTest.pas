unit ScriptUnderTest;
{$mode delphi}{$H+}
// The script files of the package, unchanged, compiled against the stand-in.

interface

uses SysUtils, HostStandIn, HostFiles;

type
  TKestruneWaitForm = class(TForm)
    BoardLabel, StepLabel, TimeLabel, NoteLabel: TLabel;
    StepBar: TProgressBar;
    CancelButton: TButton;
    constructor Create;
    procedure CancelButtonClick(Sender: TObject);
    procedure KestruneWaitFormClose(Sender: TObject; var Action: TCloseAction);
  end;

var
  KestruneWaitForm: TKestruneWaitForm;

procedure RunKestrune;

implementation


constructor TKestruneWaitForm.Create;
begin
  BoardLabel := TLabel.Create;
  StepLabel := TLabel.Create;
  TimeLabel := TLabel.Create;
  NoteLabel := TLabel.Create;
  StepBar := TProgressBar.Create;
  CancelButton := TButton.Create;
  CancelButton.Enabled := True;
end;


{$I Kestrune_WaitForm.pas}
{$I Kestrune.pas}

end.
