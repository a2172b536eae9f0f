object KestruneProbeForm: TKestruneProbeForm
  Left = 400
  Top = 300
  BorderStyle = bsSingle
  Caption = 'Kestrune probe'
  ClientHeight = 60
  ClientWidth = 240
  Color = clBtnFace
  Font.Charset = DEFAULT_CHARSET
  Font.Color = clWindowText
  Font.Height = -11
  Font.Name = 'Tahoma'
  Font.Style = []
  OldCreateOrder = False
  Position = poScreenCenter
  PixelsPerInch = 96
  TextHeight = 13
end
