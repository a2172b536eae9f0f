// The window that an export shows. The export polls its button; the window itself does
// nothing else.

// Cancels the export after a question, since Esc presses the button too.
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
