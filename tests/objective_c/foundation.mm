// The parts of the fake Foundation that run, on the Objective-C runtime that clang provides here. Nothing is
// ever released.
#include "objective_c/foundation.h"

#include <cstddef>
#include <deque>

// Blocks are used only during the call to which they are passed, so nothing needs to copy them.
extern "C" {
void* _NSConcreteStackBlock[32];
void* _NSConcreteGlobalBlock[32];
id class_createInstance(Class type, std::size_t extraBytes);
Class objc_lookUpClass(const char* name);
BOOL class_respondsToSelector(Class type, SEL selector);
}

// The runtime owns the data of its classes.
extern "C" const char* __lsan_default_suppressions();
const char* __lsan_default_suppressions() { return "leak:libobjc\n"; }

namespace brisko::fakes {

bool gRequirementRaises = false;
id gService = nil;
id gExported = nil;

std::vector<std::string>& connectionJournal() {
  static auto& journal = *new std::vector<std::string>;
  return journal;
}

namespace {

id gDelegate = nil;

id kept(id object) {
  static auto& objects = *new std::vector<id>;
  objects.push_back(object);
  return object;
}

}  // namespace

id<NSXPCListenerDelegate> listenerDelegate() { return gDelegate; }

}  // namespace brisko::fakes

using namespace brisko::fakes;

@implementation NSObject
+ (instancetype)alloc {
  return kept(class_createInstance(self, 0));
}
- (instancetype)init {
  return self;
}
- (BOOL)isEqual:(id)object {
  return self == object;
}
+ (BOOL)instancesRespondToSelector:(SEL)selector {
  return class_respondsToSelector(self, selector);
}
@end

// What @autoreleasepool calls with this runtime.
@interface NSAutoreleasePool : NSObject
+ (instancetype)new;
- (void)drain;
@end
@implementation NSAutoreleasePool
+ (instancetype)new {
  return [[NSAutoreleasePool alloc] init];
}
- (void)drain {
}
@end

// The only class of strings.
@interface Text : NSString {
 @public
  const char* bytes;
}
@end
@implementation Text
- (const char*)UTF8String {
  return bytes;
}
@end

@implementation NSString
@dynamic UTF8String;
+ (instancetype)stringWithUTF8String:(const char*)text {
  static auto& texts = *new std::deque<std::string>;
  Text* string = [Text alloc];
  string->bytes = texts.emplace_back(text).c_str();
  return string;
}
@end

@interface Bytes : NSData {
 @public
  const void* bytes;
  NSUInteger length;
}
@end
@implementation Bytes
- (const void*)bytes {
  return bytes;
}
- (NSUInteger)length {
  return length;
}
@end

@implementation NSData
@dynamic bytes;
@dynamic length;
+ (instancetype)dataWithBytes:(const void*)bytes length:(NSUInteger)length {
  Bytes* data = [Bytes alloc];
  data->bytes = bytes;
  data->length = length;
  return data;
}
@end

@implementation NSError
@end

Class NSClassFromString(NSString* name) { return objc_lookUpClass(name.UTF8String); }

@implementation NSXPCInterface
+ (NSXPCInterface*)interfaceWithProtocol:(Protocol*)__unused protocol {
  return [[NSXPCInterface alloc] init];
}
@end

@implementation NSXPCConnection
@dynamic exportedInterface;
@dynamic exportedObject;
@dynamic remoteObjectInterface;
@dynamic invalidationHandler;
- (instancetype)initWithMachServiceName:(NSString*)name options:(NSXPCConnectionOptions)options {
  connectionJournal().push_back(std::string("connects to ") + name.UTF8String +
                                (options == NSXPCConnectionPrivileged ? ", privileged" : ""));
  return self;
}
- (void)setRemoteObjectInterface:(NSXPCInterface*)__unused interface {
  connectionJournal().push_back("interface");
}
- (void)setInvalidationHandler:(void (^)())__unused handler {
  connectionJournal().push_back("invalidation handler");
}
- (id)remoteObjectProxyWithErrorHandler:(void (^)(NSError* error))handler {
  if (gService != nil) return gService;
  handler(nil);
  return nil;
}
- (void)invalidate {
  connectionJournal().push_back("invalidate");
}
- (void)setExportedInterface:(NSXPCInterface*)__unused interface {
  connectionJournal().push_back("interface");
}
- (void)setExportedObject:(id)object {
  gExported = object;
  connectionJournal().push_back("object");
}
- (void)setCodeSigningRequirement:(NSString*)requirement {
  connectionJournal().push_back(std::string("requires ") + requirement.UTF8String);
  if (gRequirementRaises) @throw [[NSError alloc] init];
}
- (void)resume {
  connectionJournal().push_back("resume");
}
@end

@implementation NSXPCListener
@dynamic delegate;
- (instancetype)initWithMachServiceName:(NSString*)__unused name {
  return self;
}
- (void)setDelegate:(id<NSXPCListenerDelegate>)delegate {
  gDelegate = delegate;
}
- (void)resume {
}
@end
