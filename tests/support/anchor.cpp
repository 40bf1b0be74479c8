void algoTestSupportAnchor() {}
