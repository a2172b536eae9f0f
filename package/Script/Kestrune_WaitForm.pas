// The window that an export shows. It decides nothing: the export looks at it.

Procedure TKestruneWaitForm.CancelButtonClick(Sender : TObject);
Begin
    KestruneWaitForm.CancelButton.Enabled := False;
    KestruneWaitForm.NoteLabel.Caption := 'Cancelling. The current step is brought to its end.';
End;

Procedure TKestruneWaitForm.KestruneWaitFormClose(Sender : TObject; Var Action : TCloseAction);
Begin
    KestruneWaitForm.CancelButton.Enabled := False;
End;
