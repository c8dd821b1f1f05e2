// Superseded by the installer's diskette runs in tests/e2e; kept only for its build target.
