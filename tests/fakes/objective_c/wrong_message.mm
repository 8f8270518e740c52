// Not to be compiled: a message that nobody understands.

#import <Foundation/Foundation.h>

void requireNothing(NSXPCConnection* connection) { [connection setCodeSignatureRequirement:@""]; }
