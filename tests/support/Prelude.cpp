// Holds the test suites' precompiled header; main comes from GoogleTest.
