#pragma once

// Each command of the reference editor takes the arguments behind its name
// and returns the process's exit status.
int cmdDemo(int argc, char** argv);
int cmdApply(int argc, char** argv);
int cmdScan(int argc, char** argv);
int cmdList(int argc, char** argv);
int cmdClasses(int argc, char** argv);
int cmdProbe(int argc, char** argv);
int cmdEnable(int argc, char** argv);
int cmdDisable(int argc, char** argv);
int cmdRecheck(int argc, char** argv);
int cmdApplyMixer(int argc, char** argv);
int cmdOpen(int argc, char** argv);
