// Must not compile: it sends a message that its receiver does not declare.

#import <Foundation/Foundation.h>

void requireNothing(NSXPCConnection* connection) { [connection setCodeSignatureRequirement:@""]; }
