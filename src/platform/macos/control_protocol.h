// platform/macos/control_protocol.h
// What a client may ask the daemon's control service for. This is the wire contract, so the names and the
// order of the arguments must not change.
#pragma once

#import <Foundation/Foundation.h>

using ReplyBlock = void (^)(BOOL done, NSString* error);

@protocol BriskoServiceProtocol
- (void)applySettings:(NSData*)settings reply:(ReplyBlock)reply;
- (void)purgeAllDataWithReply:(ReplyBlock)reply;
- (void)releaseChargeWithReply:(ReplyBlock)reply;
- (void)restartWithReply:(ReplyBlock)reply;
@end
