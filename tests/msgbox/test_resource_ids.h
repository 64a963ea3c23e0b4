// Ids of the resources in the message box tests' resource module.
#pragma once

#define IDS_TEST_MESSAGE 100
#define IDS_TEST_CUSTOM 101
#define IDS_TEST_REPORT 102
#define IDI_TEST_ICON 7
