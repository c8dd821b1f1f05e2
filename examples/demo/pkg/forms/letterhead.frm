# Form overlay: letterhead
Origin=72,760
Text=Helvetica,10,"Orvel pnzz"
Rule=72,750,540,750
