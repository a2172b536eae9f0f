unit ProbeUnderTest;
{$mode delphi}{$H+}
// The probe of the package, unchanged, compiled against the stand-in.

interface

uses SysUtils, HostStandIn, HostFiles;

type
  TKestruneProbeForm = class(TForm)
  end;

var
  KestruneProbeForm: TKestruneProbeForm;

procedure RunKestruneProbe;

// Gives all variables of the probe the values that they have when the host loads it.
procedure LoadProbe;

implementation

{$I KestruneProbe_Form.pas}
{$I KestruneProbe.pas}

procedure LoadProbe;
begin
  KestruneProbeForm.Free;
  KestruneProbeForm := TKestruneProbeForm.Create;
  {$I probe_globals.inc}
end;

end.
