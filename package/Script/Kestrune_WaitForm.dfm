object KestruneWaitForm: TKestruneWaitForm
  Left = 400
  Top = 300
  BorderIcons = [biSystemMenu]
  BorderStyle = bsSingle
  Caption = 'Kestrune'
  ClientHeight = 168
  ClientWidth = 420
  Color = clBtnFace
  Font.Charset = DEFAULT_CHARSET
  Font.Color = clWindowText
  Font.Height = -11
  Font.Name = 'Tahoma'
  Font.Style = []
  OldCreateOrder = False
  Position = poScreenCenter
  OnClose = KestruneWaitFormClose
  PixelsPerInch = 96
  TextHeight = 13
  object BoardLabel: TLabel
    Left = 16
    Top = 14
    Width = 388
    Height = 13
    AutoSize = False
    Caption = 'Board'
    Font.Charset = DEFAULT_CHARSET
    Font.Color = clWindowText
    Font.Height = -11
    Font.Name = 'Tahoma'
    Font.Style = [fsBold]
    ParentFont = False
    ShowAccelChar = False
  end
  object StepLabel: TLabel
    Left = 16
    Top = 36
    Width = 388
    Height = 13
    AutoSize = False
    Caption = 'Step'
    ShowAccelChar = False
  end
  object TimeLabel: TLabel
    Left = 16
    Top = 84
    Width = 388
    Height = 13
    AutoSize = False
    Caption = 'Time'
    ShowAccelChar = False
  end
  object NoteLabel: TLabel
    Left = 16
    Top = 104
    Width = 388
    Height = 13
    AutoSize = False
    Caption = ' '
    ShowAccelChar = False
  end
  object StepBar: TProgressBar
    Left = 16
    Top = 58
    Width = 388
    Height = 17
    TabOrder = 1
  end
  object CancelButton: TButton
    Left = 324
    Top = 130
    Width = 80
    Height = 25
    Cancel = True
    Caption = 'Cancel'
    TabOrder = 0
    OnClick = CancelButtonClick
  end
end
