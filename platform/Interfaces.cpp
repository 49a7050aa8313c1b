// The destructors of the interfaces stand here: with one function out of line, an interface has its table of
// virtual functions and its type information in this library alone, and not in each program that uses it.

#include "zobi/platform/CBCentralManager.h"
#include "zobi/platform/CBPeripheral.h"
#include "zobi/platform/Clock.h"
#include "zobi/platform/Log.h"
#include "zobi/platform/MainQueue.h"
#include "zobi/platform/NSCoder.h"
#include "zobi/platform/NSNotificationCenter.h"
#include "zobi/platform/NSTimer.h"
#include "zobi/platform/Platform.h"
#include "zobi/platform/RunLoop.h"
#include "zobi/platform/RunLoopSource.h"
#include "zobi/platform/UIApplication.h"

namespace zobi::platform {

CBCentralManager::~CBCentralManager() = default;
CBCentralManagerDelegate::~CBCentralManagerDelegate() = default;
CBCharacteristic::~CBCharacteristic() = default;
CBPeripheral::~CBPeripheral() = default;
CBPeripheralDelegate::~CBPeripheralDelegate() = default;
CBService::~CBService() = default;
Clock::~Clock() = default;
Log::~Log() = default;
MainQueue::~MainQueue() = default;
NSCoder::~NSCoder() = default;
NSNotificationCenter::~NSNotificationCenter() = default;
NSTimer::~NSTimer() = default;
Platform::~Platform() = default;
RunLoop::~RunLoop() = default;
RunLoopSource::~RunLoopSource() = default;
UIApplication::~UIApplication() = default;
NSNotificationCenter::Observer::~Observer() = default;

}  // namespace zobi::platform
