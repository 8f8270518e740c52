// A fake for Foundation: what src/platform/macos uses of it and little more. tests/objective_c implements
// what the tests need.
#pragma once

using BOOL = bool;  // as on arm64
using NSInteger = long;
using NSUInteger = unsigned long;

#define YES __objc_yes
#define NO __objc_no
#define nil nullptr
#define Nil nullptr
#define __unused __attribute__((unused))

@protocol NSObject
- (BOOL)isEqual:(id)object;
@end

__attribute__((objc_root_class))
@interface NSObject<NSObject> {
  Class isa;
}
+ (instancetype)alloc;
- (instancetype)init;
+ (BOOL)instancesRespondToSelector:(SEL)selector;
@end

@interface NSString : NSObject
+ (instancetype)stringWithUTF8String:(const char*)text;
@property(readonly) const char* UTF8String;
@end

@interface NSData : NSObject
+ (instancetype)dataWithBytes:(const void*)bytes length:(NSUInteger)length;
@property(readonly) const void* bytes;
@property(readonly) NSUInteger length;
@end

@interface NSError : NSObject
@end

extern "C" Class NSClassFromString(NSString* name);

@interface NSXPCInterface : NSObject
+ (NSXPCInterface*)interfaceWithProtocol:(Protocol*)protocol;
@end

using NSXPCConnectionOptions = NSUInteger;
constexpr NSXPCConnectionOptions NSXPCConnectionPrivileged = 1U << 12U;

@interface NSXPCConnection : NSObject
- (instancetype)initWithMachServiceName:(NSString*)name options:(NSXPCConnectionOptions)options;
@property(retain) NSXPCInterface* remoteObjectInterface;
@property(copy) void (^invalidationHandler)();
- (id)remoteObjectProxyWithErrorHandler:(void (^)(NSError* error))handler;
- (void)invalidate;
@property(retain) NSXPCInterface* exportedInterface;
@property(retain) id exportedObject;
- (void)setCodeSigningRequirement:(NSString*)requirement
    __attribute__((availability(macos, introduced = 13.0)));
- (void)resume;
@end

@class NSXPCListener;
@protocol NSXPCListenerDelegate <NSObject>
@optional
- (BOOL)listener:(NSXPCListener*)listener shouldAcceptNewConnection:(NSXPCConnection*)connection;
@end

@interface NSXPCListener : NSObject
- (instancetype)initWithMachServiceName:(NSString*)name;
@property(weak) id<NSXPCListenerDelegate> delegate;
- (void)resume;
@end
