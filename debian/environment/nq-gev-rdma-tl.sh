# shellcheck shell=sh
# Where GenICam applications that are started from a shell find this producer, behind those that are named already.
case ":${GENICAM_GENTL64_PATH:-}:" in
*:/usr/lib/gentl:*) ;;
*) export GENICAM_GENTL64_PATH="${GENICAM_GENTL64_PATH:+$GENICAM_GENTL64_PATH:}/usr/lib/gentl" ;;
esac
# For applications that were not written for this producer: the answers of GenTL 1.5 where its own differ. For one
# application alone there is nq-gev-standard, of the package nq-gev-tools.
#export NQ_GEV_TL_STANDARD=1
