unit SecondInterpreter;
{$I ScriptUnit.inc}
