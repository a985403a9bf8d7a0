// Nothing but the headers that are compiled for all tests.
