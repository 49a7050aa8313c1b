#include "ZobiConnectKit/ZobiConnectKit.h"

const double ZobiConnectKitVersionNumber = 1.0;
const char ZobiConnectKitVersionString[] = "@(#)PROGRAM:ZobiConnectKit  PROJECT:zobiconnectkit-1\n";
