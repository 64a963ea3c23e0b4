// The resource module of the message box tests holds resources only; this unit gives the linker
// something to build the DLL around.
int msgbox_test_resources_marker = 0;
