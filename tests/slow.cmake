# Labels the tests that wait for real time-outs; CTest reads this after the lists of tests.
foreach(name IN ITEMS
        CResumeTest.EachFailureOfTheNetworkIsResumed
        CResumeTest.PausesEndEarlyOnNetworkChangeCancellationAndDestroy
        CResumeTest.RetryAfterDelaysTheNextAttempt
        CWrapperTest.SilentPeersAreGivenUp)
    list(FIND engine_test_TESTS ${name} position)
    if(NOT position EQUAL -1)
        set_tests_properties(${name} PROPERTIES LABELS slow)
    elseif(engine_test_TESTS)
        message(FATAL_ERROR "slow.cmake: there is no test ${name}")
    endif()
endforeach()
