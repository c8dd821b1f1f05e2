// The scripts the installer writes: each is the shell line, the banner, then
// one of these bodies filled in with printf. The texts are kept byte for byte
// (misspellings included): installed sites compare and patch them.
#include "Scripts.h"

const char *const ScriptShShell = "#!/bin/sh";

// Five lines, 63 columns wide once the year is filled in, then two empty lines.
const char *const ScriptCopyRight =
    "###############################################################\n"
    "#                                                             #\n"
    "#  Copyright (c) %d Orvel. All rights reserved.             #\n"
    "#                                                             #\n"
    "###############################################################\n"
    "\n"
    "\n";

const char *const ScriptTail = "\n\n## Exit Script\nexit 0\n";

// Launcher made by the package list's `bat` attribute: package directory, package
// directory, program name.
const char *const SimpleScript = R"SCRIPT(
PelnorFileSourceDir=`pwd`
export PelnorFileSourceDir

cd %s
exec %s/%s $*
)SCRIPT";

// Print interface script: package directory, "pnzz", "pelnorpnzz", "pelnorpnzz",
// "pnzz", "pnzz", "pnzz".
const char *const OrvelPrintpnzzScript = R"SCRIPT(ToolPath="%s"
CfgFlags=`cat ${ToolPath}/.pn_cfg`

## Determine configuration
for flag in ${CfgFlags}
do
    case $flag in
	LPRng | V5 | AIX | BSD | CUPS)
	    flConfig=$flag
	    ;;
	*)  ;;
    esac
done


## Main section of the script
case ${flConfig:-V5} in
    AIX) ## The name says it all... native lpd subsystems
	cd ${ToolPath}
	${ToolPath}/AixInterface $*
	;;

    BSD) ## SunOS, DEC-UX, and native Linux lpd subsystems
	PelnorQueue=`pwd`
	PelnorPrinter=`basename $PelnorQueue`

	${ToolPath}/pnr%stty -d$PelnorPrinter -f >%s.log 2>%s.log
	;;

    LPRng) ## A BSD subsytem with additional quirks
	PelnorFileSourceDir=`pwd`
	export PelnorFileSourceDir
	cd ${ToolPath}

	PelnorQueue=${PRINTER:-"none"}
	if [ "_x_$PelnorQueue" = "_x_none" ]
	then
		PelnorQueue=`basename $SPOOL_DIR`
	fi
	FileCnt="0"
	ControlFile="0"

	echo "$CONTROL $*" | while read var
	do
	    case $var in
		H*) PelnorHost_name=`echo "$var" | sed -e "s/H//"`
		    export PelnorHost_name
		    ;;

		P*) PelnorUser_name=`echo "$var" | sed -e "s/P//"`
		    export PelnorUser_name
		    ;;

		Z*) opt=`echo "$var" | sed -e "s/Z/-o/" -e "s/,/ -o/g"`
		    options="$options $opt"
		    ;;

#		Q*) PelnorQueue=`echo $var |sed -e "s/Q//"`
#		    export PelnorQueue
#		    ;;

		J*) opt=`echo "$var" | cut -f 1 -d ' '`
		    options="$options -$opt"
		    ;;

		T*) PelnorJob_title=`echo $var |sed -e "s/T//"`
		    export PelnorJob_title
		    ;;

		N*) FileCnt=`expr ${FileCnt} + 1`
		    ;;

		U*) file=`echo "$var" | sed -e "s/U//"`
		    if [ "$ControlFile" = "0" ]
		    then
			PelnorControl_file="c`echo $file |cut -c2-`"
			export PelnorControl_file
			ControlFile=`expr $ControlFile + 1`
		    fi
		    files="$files $SPOOL_DIR/$file"
		    ;;

		-print) n=`echo "$files" | wc -w`
		    Copies=`expr $n / $FileCnt`
		    i="0"
		    for f in $files
		    do
			i=`expr "(" $i + 1 ")" %% $Copies`
			if [ "$i" = "0" ]; then
			    FFL="$FFL $f"
			fi
		    done
		    ${ToolPath}/pnr%stty -d${PelnorQueue} $options -c$Copies $FFL
		    echo "Output for LPRng"

		    ## Exit Script
		    exit 0
		;;
	    esac
	done
	;;

    V5)	## Solaris, HP-UX, SGI, and SCO native lpd subsystems
	PATH=/usr/sbin:/usr/bin
	PelnorPrinter=`/usr/bin/basename $0`
	PelnorRequest_id=$1
	PelnorUser_name=$2
	PelnorTitle=$3
	PelnorCopies=$4
	PelnorOption_list=$5
	export PATH PelnorPrinter PelnorRequest_id PelnorUser_name PelnorTitle PelnorCopies PelnorOption_list
	shift 5

	cd ${ToolPath}
	${ToolPath}/pnr%stty -d$PelnorPrinter -i $*
	;;

    CUPS)## Common Unix Printing System support
	PATH=/usr/sbin:/usr/bin
	PelnorPrinter=$PRINTER
	PelnorRequest_id=$1
	PelnorUser_name=$2
	PelnorTitle=$3
	PelnorCopies=$4
	PelnorOption_list=$5
	export PATH PelnorPrinter PelnorRequest_id PelnorUser_name PelnorTitle PelnorCopies PelnorOption_list
	shift 5

	cd ${ToolPath}
	${ToolPath}/pnr%stty -d$PelnorPrinter -i $*
	;;
esac)SCRIPT";

// Queue filter script: package directory, spool directory.
const char *const OrvelKVTScript = R"SCRIPT(ToolPath="%s"
CfgFlags=`cat ${ToolPath}/.pn_cfg`
SpoolDir="%s"

# Determine configuration
for flag in ${CfgFlags}
do
    case $flag in
	LPRng | V5 | AIX | BSD | CUPS)
	    flConfig=$flag
	    ;;

	*)  ;;
    esac
done


# Main section of the script
case ${flConfig:-V5} in
    AIX) # The name says it all... native lpd subsystems
	cd ${ToolPath}

	_exitVal=1
	while [ $_exitVal -ne 0 ]
	do
	    ${ToolPath}/kvt $*
	    _exitVal=$?
	done

	;;

    BSD) # SunOS, DEC-UX, and native Linux lpd subsystems
	PelnorQueue=`pwd`
	PelnorPrinter=`basename ${PelnorQueue}`

	# Store STDIN in temporary file
	cat <&0 > ${SpoolDir}/${PelnorPrinter}/${PelnorPrinter}.$$

	_exitVal=1
	while [ $_exitVal -ne 0 ]
	do
	    ${ToolPath}/kvt ${SpoolDir}/${PelnorPrinter}/${PelnorPrinter}.$$
	    _exitVal=$?
	done

	# Remove temporary file
	rm -f ${SpoolDir}/${PelnorPrinter}/${PelnorPrinter}.$$
	;;

    LPRng) # A BSD subsytem with additional quirks
	PelnorQueue=`pwd`
	PelnorPrinter=`basename ${PelnorQueue}`

	# OK... what are we looking for
	files=
	while getopts C:A:F:H:J:L:P:Q:a:d:e:f:h:j:k:l:n:s:w:y:t:x: opt
	do
	    case $opt in
		f)  files="$files $OPTARG"
		    ;;
		*)
		    ;;
	    esac
	done

	# Store STDIN in temporary file if needed...
	pJob=
	flRemoveJob="False"
	for file in $files
	do
	    if [ "$file" = "(stdin)" ]
	    then
		cat <&0 > ${SPOOL_DIR}/${PelnorPrinter}.$$
		pJob="${SPOOL_DIR}/${PelnorPrinter}.$$"
		flRemoveJob="True"
	    else
		pJob=" $pJob $file"
	    fi
	done

	# Continue until kvt does the job
	_exitVal=1
	while [ $_exitVal -ne 0 ]
	do
	    ${ToolPath}/kvt $pJob
	    _exitVal=$?
	done

	# Remove temporary file if needed...
	if [ ${flRemoveJob:-False} = "True" ]
	then
	    rm -f $pJob
	fi
	;;

    V5) # Solaris, HP-UX, SGI, and SCO native lpd subsystems
	PATH=/usr/sbin:/usr/bin
	PelnorPrinter=`/usr/bin/basename $0`
	PelnorRequest_id=$1
	PelnorUser_name=$2
	PelnorTitle=$3
	PelnorCopies=$4
	PelnorOption_list=$5
	export PATH PelnorPrinter PelnorRequest_id PelnorUser_name PelnorTitle PelnorCopies PelnorOption_list

	shift 5

	cd ${ToolPath}
	_exitVal=1
	while [ $_exitVal -ne 0 ]
	do
	    ${ToolPath}/kvt $*
	     _exitVal=$?
	done
	;;

    CUPS) Common Unix Printing System
	PATH=/usr/sbin:/usr/bin
	PelnorPrinter=$PRINTER
	PelnorRequest_id=$1
	PelnorUser_name=$2
	PelnorTitle=$3
	PelnorCopies=$4
	PelnorOption_list=$5
	export PATH PelnorPrinter PelnorRequest_id PelnorUser_name PelnorTitle PelnorCopies PelnorOption_list

	shift 5

	cd ${ToolPath}
	_exitVal=1
	while [ $_exitVal -ne 0 ]
	do
	    ${ToolPath}/kvt $*
	     _exitVal=$?
	done
	;;
esac)SCRIPT";

// Daemon start/stop script: product, directory, directory, product, directory, directory.
const char *const DemonScript = R"SCRIPT(
case $1 in
'start')
	echo "Starting %s Print Daemon."
	[ -f %s/PelnorD ] && %s/PelnorD &
	;;
'stop')
	echo "Stoping %s Print Daemon."
	[ -f %s/PelnorDStop ] && %s/PelnorDStop
	;;
esac
)SCRIPT";

// Start/stop script that also answers start_msg and stop_msg.
const char *const SimpleHPOrvelDemonScript = R"SCRIPT(case $1 in
'stop')
	echo "Stoping %s Print Daemon."
	[ -f %s/PelnorDStop ] && %s/PelnorDStop
	;;
'start')
	echo "Starting %s Print Daemon."
	[ -f %s/PelnorD ] && %s/PelnorD &
	;;
start_msg)
	echo "Starting %s Print Daemon."
	;;
stop_msg)
	echo "Stoping %s Print Daemon."
	;;
*)
	echo "usage: $0 {start|stop}"
	;;
esac
)SCRIPT";

// Watcher that the init table respawns: product, directory, directory.
const char *const SimpleOvPnScript = R"SCRIPT(s=""
while [ -z "$s" ]
do
	str=`ps -ae | grep PelnorD`
	if [ -z "$str" ];
	then
		echo "Starting %s Print Daemon." > /dev/console
	[ -f %s/PelnorD ] && %s/PelnorD &
	fi
	sleep 180
done)SCRIPT";
