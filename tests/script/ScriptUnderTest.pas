unit ScriptUnderTest;
{$I ScriptUnit.inc}
