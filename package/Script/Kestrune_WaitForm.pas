// The window that an export shows. It decides nothing: the export looks at it.

// Esc presses the button too, so a question comes before a long export is thrown away.
Procedure TKestruneWaitForm.CancelButtonClick(Sender : TObject);
Begin
    If KestruneWaitForm.CancelButton.Enabled Then
        If ConfirmNoYes('Stop this export? Nothing is delivered then.') Then
        Begin
            KestruneWaitForm.CancelButton.Enabled := False;
            KestruneWaitForm.NoteLabel.Caption := 'Cancelling. The current step is brought to its end.';
        End;
End;

Procedure TKestruneWaitForm.KestruneWaitFormClose(Sender : TObject; Var Action : TCloseAction);
Begin
    KestruneWaitForm.CancelButton.Enabled := False;
End;
