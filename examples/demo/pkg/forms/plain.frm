# Form overlay: none
