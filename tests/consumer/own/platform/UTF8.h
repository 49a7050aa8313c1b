#error "a header of the consumer was taken for a private one of ZobiConnectKit"
