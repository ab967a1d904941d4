package com.corvane.probes.builtin;

import com.corvane.probes.MethodPattern;
import com.corvane.probes.Param;
import com.corvane.probes.RetransformIfInstanceOf;
import com.corvane.probes.This;
import com.corvane.probes.ThrownException;

/**
 * Requests to servlets, light, for both javax.servlet and jakarta.servlet:
 * a row of "Servlet Requests" for each, with the method, the URI, the
 * status and the time, and the error of a request that failed.
 */
@MethodPattern({"*:service(javax.servlet.ServletRequest, javax.servlet.ServletResponse)",
        "*:service(jakarta.servlet.ServletRequest, jakarta.servlet.ServletResponse)",
        "*:doFilter(javax.servlet.ServletRequest, javax.servlet.ServletResponse, javax.servlet.FilterChain)",
        "*:doFilter(jakarta.servlet.ServletRequest, jakarta.servlet.ServletResponse, jakarta.servlet.FilterChain)"})
@RetransformIfInstanceOf({"javax.servlet.Servlet", "javax.servlet.Filter", "jakarta.servlet.Servlet",
        "jakarta.servlet.Filter"})
public final class ServletsLW {
    private ServletsLW() {
    }

    public static void onEnter(@This Object servlet, @Param(1) Object request) {
        ServletRequests.entered(servlet, request, false);
    }

    public static void onExit(@Param(2) Object response, @ThrownException Throwable thrown) {
        ServletRequests.exited(response, thrown);
    }
}
