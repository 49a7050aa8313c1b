#include "ZobiConnectKit/ZOKManagerDelegate.h"

// Out of line, so that the class has its table of virtual functions and its type information in the library
// alone.
ZOKManagerDelegate::~ZOKManagerDelegate() = default;
